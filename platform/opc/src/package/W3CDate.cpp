#include "platform/opc/src/package/W3CDate.hpp"

#include <opc/Exception.hpp>

#include "platform/opc/src/Ascii.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace opc::qzservices {

using foundation::clock::Seconds;
namespace chrono = std::chrono;

namespace {

// Reads a date from front to back. The first thing that does not fit makes it invalid, whatever
// follows.
class DateScanner {
public:
    explicit DateScanner(std::string_view text) : rest_(text) {}

    std::optional<Seconds> scan() {
        const auto year = number(4, 9999);
        const auto month = skip('-') ? number(2, 12) : 1;
        // A part may only follow the one before it, so "2026" and "2026-11" have no time.
        const bool hasMonth = at_ > 4;
        const auto day = hasMonth && skip('-') ? number(2, 31) : 1;
        const bool hasDay = at_ > 7;
        const auto time = hasDay && skip('T') ? timeOfDay() : chrono::seconds(0);
        const chrono::year_month_day date{chrono::year(year), chrono::month(unsigned(month)),
                                          chrono::day(unsigned(day))};
        if (!valid_ || !rest_.empty() || !date.ok()) return std::nullopt;
        return Seconds(chrono::sys_days(date)) + time;
    }

private:
    bool skip(char c) {
        if (!rest_.starts_with(c)) return false;
        advance(1);
        return true;
    }

    void require(bool condition) { valid_ = valid_ && condition; }

    int number(std::size_t digits, int most) {
        int value = 0;
        for (std::size_t i = 0; i < digits; ++i) {
            if (rest_.empty() || !ascii::isDigit(rest_.front())) {
                valid_ = false;
                return 0;
            }
            value = value * 10 + (rest_.front() - '0');
            advance(1);
        }
        require(value <= most);
        return value;
    }

    chrono::seconds timeOfDay() {
        const chrono::hours hours(number(2, 23));
        require(skip(':'));
        const chrono::minutes minutes(number(2, 59));
        chrono::seconds seconds(0);
        if (skip(':')) {
            seconds = chrono::seconds(number(2, 59));
            if (skip('.')) fraction();
        }
        return hours + minutes + seconds - zone();
    }

    void fraction() {
        const auto digits = rest_.find_first_not_of("0123456789");
        require(digits != 0 && !rest_.empty());
        advance(std::min(digits, rest_.size()));
    }

    // Reads the zone and returns how far it is ahead of UTC.
    chrono::seconds zone() {
        if (skip('Z')) return chrono::seconds(0);
        const bool behind = rest_.starts_with('-');
        require(skip('+') || skip('-'));
        const chrono::hours hours(number(2, 23));
        require(skip(':'));
        const chrono::seconds ahead = hours + chrono::minutes(number(2, 59));
        return behind ? -ahead : ahead;
    }

    void advance(std::size_t count) {
        rest_.remove_prefix(count);
        at_ += count;
    }

    std::string_view rest_;
    std::size_t at_ = 0;
    bool valid_ = true;
};

}  // namespace

std::optional<Seconds> parseW3CDate(std::string_view text) {
    return DateScanner(text).scan();
}

std::string formatW3CDate(Seconds time) {
    // Compared as times, because the calendar's years have 16 bits.
    constexpr Seconds kFirst = chrono::sys_days(chrono::year(0) / chrono::January / 1);
    constexpr Seconds kBehind = chrono::sys_days(chrono::year(10'000) / chrono::January / 1);
    if (time < kFirst || time >= kBehind) {
        throw Exception(
            "modified: a time of " + std::to_string(time.time_since_epoch().count()) +
            " seconds since 1970 cannot be written; expected one in the years 0 to 9999");
    }
    const auto day = chrono::floor<chrono::days>(time);
    const chrono::year_month_day date(day);
    const chrono::hh_mm_ss clock(time - day);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", int(date.year()),
                  unsigned(date.month()), unsigned(date.day()), int(clock.hours().count()),
                  int(clock.minutes().count()), int(clock.seconds().count()));
    return text;
}

}  // namespace opc::qzservices
