#include "app/InputFiles.hpp"

#include <fl/FileDescriptor.hpp>

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

#include "app/Error.hpp"
#include "app/ScratchFile.hpp"
#include "tests/support/ClaimedSize.hpp"
#include "tests/support/TemporaryDirectory.hpp"

namespace qzapp {
namespace {

using test_support::ClaimedSize;

constexpr std::uint64_t kLimit = 1'000'000;

std::string copied(const FileName& file) {
    auto target = makeScratchFile("the copy");
    copyBytes(file, target);
    std::string bytes(2 * kLimit, '\0');
    bytes.resize(target.readAt(std::as_writable_bytes(std::span(bytes)), 0));
    return bytes;
}

// The bytes, or why there are none.
std::string textOf(const std::function<std::string()>& read) {
    try {
        return read();
    } catch (const Error& e) {
        return e.text();
    } catch (const std::system_error&) {
        return "cannot be copied";
    }
}

TEST(ReadBytes, ReadsToTheEndWhateverSizeTheSystemGives) {
    const std::string changed = "was changed while it was read; try again";
    const std::string large(300'000, 'x');
    const struct {
        const char* why;
        std::string content;
        std::uint64_t claimed;
        std::string read, copied;
    } rows[] = {
        {"empty", "", 0, "", ""},
        {"unknown", "abc", 0, "abc", "abc"},
        {"unknown, more than fits at once", large, 0, large, large},
        {"unknown, as large as allowed", std::string(kLimit, 'y'), 0, std::string(kLimit, 'y'),
         std::string(kLimit, 'y')},
        {"unknown, too large", std::string(kLimit + 1, 'y'), 0,
         "holds more than the limit of 1,000,000 bytes", std::string(kLimit + 1, 'y')},
        {"right", "abc", 3, "abc", "abc"},
        {"too small", "abc", 2, changed, changed},
        {"too large", "abc", 4, changed, "cannot be copied"},
        {"above the limit", "abc", kLimit + 1,
         "holds 1,000,001 bytes, more than the limit of 1,000,000 bytes", "cannot be copied"},
    };
    const test_support::TemporaryDirectory directory;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        directory.write("file", row.content);
        const FileName file = fileNamed((directory.path() / "file").string());
        const ClaimedSize claimed(row.claimed);
        EXPECT_EQ(textOf([&] { return readBytes(file, kLimit); }), row.read);
        EXPECT_EQ(textOf([&] { return copied(file); }), row.copied);
    }
}

}  // namespace
}  // namespace qzapp
