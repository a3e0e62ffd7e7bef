// What the libraries make at first use is made by many threads at once.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <iostream>
#include <latch>
#include <string_view>
#include <thread>

#include "tests/faults/Operations.hpp"
#include "tests/support/AppPackage.hpp"
#include "tests/support/TemporaryDirectory.hpp"

namespace faults {
namespace {

using Operation = std::function<void(const std::u16string& app, const std::u16string& scratch)>;

constexpr std::size_t kThreads = 16;

std::vector<Operation> operations(const Inputs& inputs) {
    std::vector<Operation> all;
    for (const SaveOperation& each : saveOperations()) {
        if (each.isTool) continue;
        all.push_back([&](const auto& app, const auto&) { each.run(app, inputs); });
    }
    for (const ReadOperation& each : readOperations()) {
        if (std::string_view(each.name) == "Code") continue;  // the package below has none
        all.push_back(
            [&](const auto& app, const auto& scratch) { each.run(app, inputs, scratch); });
    }
    return all;
}

// Each thread begins with another operation, on files of its own. Returns how many failed.
int useOnManyThreads(const std::vector<Operation>& all, std::size_t turn,
                     const test_support::TemporaryDirectory& directory) {
    std::latch start(kThreads);
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < kThreads; ++number) {
        threads.emplace_back([&, number] {
            const std::string own = std::to_string(number);
            start.arrive_and_wait();
            try {
                all[(turn + number) % all.size()](directory.name(own + ".kvpkg"),
                                                  directory.name(own));
            } catch (const std::exception& failure) {
                std::cerr << failure.what() << std::endl;
                ++failures;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    return failures;
}

TEST(FirstUseThreadTest, IsSafeOnManyThreadsAtOnce) {
    const test_support::TemporaryDirectory directory, other;
    const Inputs inputs(other.path().u16string());
    const std::vector<Operation> all = operations(inputs);
    const std::string example = test_support::goodPackage().bytes();
    for (std::size_t turn = 0; turn < all.size(); ++turn) {
        for (std::size_t number = 0; number < kThreads; ++number)
            directory.write(std::to_string(number) + ".kvpkg", example);
        // A process that has used nothing yet.
        const pid_t child = ::fork();
        if (child == 0) ::_exit(useOnManyThreads(all, turn, directory));
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "turn " << turn;
    }
}

}  // namespace
}  // namespace faults
