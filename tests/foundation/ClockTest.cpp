#include <foundation/Clock.hpp>

#include <gtest/gtest.h>

namespace foundation::clock {
namespace {

using namespace std::chrono_literals;

TEST(Clock, StandsWhereItIsSetAndRunsAgain) {
    const auto isRunning = [] {
        const auto age = std::chrono::system_clock::now() - now();
        return age >= 0s && age < 60s;
    };
    EXPECT_TRUE(isRunning());
    for (const auto fixed : {0s, -1s, 1700000000s}) {
        set(Seconds(fixed));
        EXPECT_EQ(now(), Seconds(fixed));
    }
    set(std::nullopt);
    EXPECT_TRUE(isRunning());
}

}  // namespace
}  // namespace foundation::clock
