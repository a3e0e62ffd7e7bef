// Core properties: any document, properties there and back, and dates against the calendar of the C
// library.

#include <opc/CoreProperties.hpp>
#include <opc/Exception.hpp>

#include <cstdint>
#include <ctime>
#include <optional>
#include <regex>
#include <string>

#include "fuzz/Fuzzing.hpp"
#include "fuzz/XmlText.hpp"
#include "platform/opc/Ascii.hpp"
#include "platform/opc/HostProperties.hpp"
#include "platform/opc/StandardProperties.hpp"
#include "platform/opc/W3CDate.hpp"

namespace {

using foundation::clock::Seconds;
using foundation::release_info::ReleaseInfo;
using fuzz::require;
using opc::qzservices::CoreProperties;
using opc::qzservices::HostProperties;
using opc::qzservices::StandardProperties;

constexpr std::size_t kLongestDate = 64;
constexpr std::int64_t kFirstSecond = -62'167'219'200;  // of the year 0
constexpr std::int64_t kPastLastSecond = 253'402'300'800;

template <class Properties>
std::optional<CoreProperties> parse(std::string_view document) {
    CoreProperties properties;
    try {
        Properties::parse(document, "file", properties);
        return properties;
    } catch (const opc::Exception&) {
        return std::nullopt;
    }
}

// ---- Any document

template <class Properties>
void checkDocument(std::string_view document) {
    const auto properties = parse<Properties>(document);
    if (!properties) return;
    const auto modified = properties->getLastModifiedTime();
    // A zone may carry a date past the years that are written.
    const bool isWritable = !modified || (modified->time_since_epoch().count() >= kFirstSecond &&
                                          modified->time_since_epoch().count() < kPastLastSecond);
    std::string written;
    const auto write = [&] { written = Properties::toXml(*properties); };
    require(fuzz::refuses<opc::Exception>(write) == !isWritable, "what was read can be written");
    if (isWritable) require(parse<Properties>(written) == properties, "what is written reads back");
}

// ---- Properties

struct Drawn {
    CoreProperties properties;
    bool isWritable = true;

    std::optional<std::u16string> text(fuzz::Input& input) {
        if (!input.flag()) return std::nullopt;
        const auto text = input.units();
        isWritable = isWritable && fuzz::isXmlText(text);
        return text;
    }
};

Drawn draw(fuzz::Input& input) {
    Drawn drawn;
    auto& properties = drawn.properties;
    if (const auto text = drawn.text(input)) properties.setTitle(*text);
    if (const auto text = drawn.text(input)) properties.setDescription(*text);
    if (const auto text = drawn.text(input)) properties.setCreatedBy(*text);
    if (const auto text = drawn.text(input)) properties.setVersion(*text);
    if (const auto text = drawn.text(input)) properties.setContentType(*text);
    if (const auto text = drawn.text(input)) properties.setContentTypeFriendlyName(*text);
    if (const auto text = drawn.text(input)) properties.setKORVALRelease(*text);
    if (const auto text = drawn.text(input)) {
        properties.setKORVALReleaseInfo(input.flag() ? ReleaseInfo::makeLegacy(*text)
                                                     : ReleaseInfo{*text});
    }
    if (input.flag()) {
        const auto seconds = static_cast<std::int64_t>(input.number(5)) - (std::int64_t{1} << 38);
        properties.setLastModifiedTime(Seconds(std::chrono::seconds(seconds)));
        drawn.isWritable = drawn.isWritable && seconds >= kFirstSecond && seconds < kPastLastSecond;
    }
    return drawn;
}

void checkProperties(fuzz::Input& input) {
    const Drawn drawn = draw(input);
    std::string standard, host;
    const bool isRefused = fuzz::refuses<opc::Exception>([&] {
        standard = StandardProperties::toXml(drawn.properties);
        host = HostProperties::toXml(drawn.properties);
    });
    require(isRefused == !drawn.isWritable, "what XML or the calendar cannot hold is refused");
    if (isRefused) return;
    CoreProperties read;
    StandardProperties::parse(standard, "file", read);
    HostProperties::parse(host, "file", read);
    require(read == drawn.properties, "properties read back");
}

// ---- Dates

// The time of a calendar date in UTC; nullopt when the C library takes it for another date.
std::optional<std::int64_t> timeOf(std::tm date) {
    const std::tm asked = date;
    const std::time_t time = ::timegm(&date);
    const bool isSame = date.tm_year == asked.tm_year && date.tm_mon == asked.tm_mon &&
                        date.tm_mday == asked.tm_mday && date.tm_hour == asked.tm_hour &&
                        date.tm_min == asked.tm_min && date.tm_sec == asked.tm_sec;
    return isSame ? std::optional<std::int64_t>(time) : std::nullopt;
}

std::optional<std::int64_t> expectedTime(const std::string& text) {
    static const std::regex expression(
        "([0-9]{4})(-([0-9]{2})(-([0-9]{2})"
        "(T([0-9]{2}):([0-9]{2})(:([0-9]{2})(\\.[0-9]+)?)?(Z|([+-])([0-9]{2}):([0-9]{2})))?)?)?");
    std::smatch match;
    if (!std::regex_match(text, match, expression)) return std::nullopt;
    const auto number = [&](std::size_t group, int otherwise) {
        return match[group].matched ? std::stoi(match[group]) : otherwise;
    };
    std::tm date{};
    date.tm_year = number(1, 0) - 1900;
    date.tm_mon = number(3, 1) - 1;
    date.tm_mday = number(5, 1);
    date.tm_hour = number(7, 0);
    date.tm_min = number(8, 0);
    date.tm_sec = number(10, 0);
    const auto time = timeOf(date);
    const int hours = number(14, 0), minutes = number(15, 0);
    if (!time || hours > 23 || minutes > 59) return std::nullopt;
    const int ahead = (hours * 60 + minutes) * 60;
    return *time - (match[13] == "-" ? -ahead : ahead);
}

void checkDate(const std::string& text) {
    const auto date = opc::qzservices::parseW3CDate(text);
    const auto expected = expectedTime(text);
    require(date.has_value() == expected.has_value(), "a date is one that exists");
    if (!date) return;
    const auto seconds = date->time_since_epoch().count();
    require(seconds == *expected, "a date is the time that it says");
    if (seconds < kFirstSecond || seconds >= kPastLastSecond) return;
    require(opc::qzservices::parseW3CDate(opc::qzservices::formatW3CDate(*date)) == date,
            "a time reads back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    if (input.startsWith("<")) {
        const auto document = input.rest();
        checkDocument<StandardProperties>(document);
        checkDocument<HostProperties>(document);
    } else if (size <= kLongestDate && data != nullptr && opc::ascii::isDigit(char(data[0]))) {
        checkDate(std::string(input.rest()));
    } else {
        checkProperties(input);
    }
    return 0;
}
