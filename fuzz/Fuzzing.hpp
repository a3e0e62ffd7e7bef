#pragma once

#include <fl/SystemCalls.hpp>
#include <foundation/Clock.hpp>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "tests/support/TemporaryDirectory.hpp"

// What the fuzz targets share.
namespace fuzz {

inline void require(bool holds, const char* rule) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", rule);
    std::abort();
}

// Returns what `work` returns, or nullopt if it throws one of these. Any other exception ends the
// process.
template <class Exception, class... Others, class Work>
auto attempt(Work work) -> std::optional<decltype(work())> {
    try {
        if constexpr (sizeof...(Others) != 0) {
            return attempt<Others...>(work);
        } else {
            return work();
        }
    } catch (const Exception&) {
        return std::nullopt;
    }
}

// Whether `work` throws `Exception`.
template <class Exception, class Work>
bool refuses(Work work) {
    return !attempt<Exception>([&] {
        work();
        return true;
    });
}

// An input, from which a target takes small decisions and texts, front to back. When it is used up
// it gives zeros and empty texts, so any bytes are a complete program.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : rest_(reinterpret_cast<const char*>(data), size) {}

    bool empty() const noexcept { return rest_.empty(); }
    bool startsWith(std::string_view text) const noexcept { return rest_.starts_with(text); }

    std::uint8_t byte() { return static_cast<std::uint8_t>(number(1)); }
    bool flag() { return (byte() & 1) != 0; }
    // `count` is 256 at most.
    std::size_t below(std::size_t count) { return byte() % count; }
    template <class Table>
    const auto& oneOf(const Table& table) {
        return std::data(table)[below(std::size(table))];
    }
    std::uint64_t number(int bytes) {
        std::uint64_t number = 0;
        for (const char c : take(static_cast<std::size_t>(bytes)))
            number = number << 8 | static_cast<unsigned char>(c);
        return number;
    }
    // Its first byte is its length.
    std::string bytes() { return std::string(take(byte())); }
    // The same as text: ASCII characters stand for themselves, other bytes for units that are
    // easily handled wrongly.
    std::u16string units() {
        static constexpr char16_t kOdd[] = {0xD83D, 0xDE00, 0xD800, 0xDC00, 0xFFFE, 0xFFFF,
                                            0xFFFD, 0xFEFF, 0x0085, 0x2028, 0x00A0, 0x00E9,
                                            0x0130, 0x03A3, 0x007F, 0x4E2D};
        std::u16string units;
        for (const char c : take(byte())) {
            const auto value = static_cast<unsigned char>(c);
            units += value < 0x80 ? char16_t(value) : kOdd[value % std::size(kOdd)];
        }
        return units;
    }
    std::string_view rest() { return take(rest_.size()); }

private:
    std::string_view take(std::size_t length) {
        const auto taken = rest_.substr(0, length);
        rest_.remove_prefix(taken.size());
        return taken;
    }

    std::string_view rest_;
};

// A directory for those files of a target that cannot be in MemoryFiles.hpp; on a disk in memory if
// there is one. From the first call on, saves do not wait for the disk and the time stands still,
// so an input always does the same.
inline const test_support::TemporaryDirectory& workspace() {
    static const test_support::TemporaryDirectory directory = [] {
        constexpr const char* kInMemory = "/dev/shm";
        if (std::filesystem::is_directory(kInMemory)) ::setenv("TMPDIR", kInMemory, 1);
        fl::filesystem::systemCalls().fsync = [](int) { return 0; };
        foundation::clock::set(foundation::clock::Seconds(std::chrono::seconds(1'800'000'000)));
        return test_support::TemporaryDirectory();
    }();
    return directory;
}

}  // namespace fuzz
