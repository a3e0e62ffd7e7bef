#include <foundation/SaveWatch.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace foundation {
namespace {

TEST(SaveWatch, TheNewestThatIsLeftCounts) {
    std::string reports;
    const auto watch = [&](char name) {
        return std::make_unique<SaveWatch>([&reports, name](std::uint64_t) {
            reports += name;
            return true;
        });
    };
    auto a = watch('a'), b = watch('b'), c = watch('c');
    SaveWatch::advance(1);
    b.reset();
    SaveWatch::advance(1);
    c.reset();
    SaveWatch::advance(1);
    c = watch('d');
    a.reset();
    SaveWatch::advance(1);
    c.reset();
    SaveWatch::advance(1);
    EXPECT_EQ(reports, "ccad");
}

TEST(SaveWatch, MayBeDestroyedByItsReport) {
    std::optional<SaveWatch> watch;
    const std::string text(100, 'x');
    watch.emplace([&watch, copy = text, &text](std::uint64_t) {
        watch.reset();
        return copy != text;
    });
    EXPECT_THROW(SaveWatch::advance(1), Cancelled);
    SaveWatch::advance(1);
}

}  // namespace
}  // namespace foundation
