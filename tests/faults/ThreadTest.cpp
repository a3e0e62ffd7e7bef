// Distinct objects on distinct threads, and what the libraries make at first use made by many
// threads at once.

#include <iostream>
#include <latch>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/faults/FaultsTest.hpp"
#include "tests/support/AppPackage.hpp"

namespace faults {
namespace {

constexpr std::size_t kThreads = 16;

#if defined(__SANITIZE_THREAD__)
constexpr std::size_t kRounds = 200;
#else
constexpr std::size_t kRounds = 50;
#endif

std::vector<SaveOperation> edits() {
    std::vector<SaveOperation> all;
    for (const SaveOperation& each : saveOperations()) {
        if (!each.isTool && !each.replacesAnyFile && !each.usesThreads) all.push_back(each);
    }
    return all;
}

std::vector<ReadOperation> reads() {
    std::vector<ReadOperation> all;
    std::ranges::copy_if(readOperations(), std::back_inserter(all),
                         [](const ReadOperation& each) { return !each.usesThreads; });
    return all;
}

class ThreadTest : public RepeatableTest {
protected:
    // Edits an app of its own, saves and reads it, in one way after another from way `first` on.
    // Returns the last that it has read and the app's bytes, or what failed.
    std::string use(const std::string& name, std::size_t first, std::size_t rounds) const {
        const auto app = work_.write(name + ".kvpkg", example_);
        std::string last;
        try {
            for (std::size_t round = first; round < first + rounds; ++round) {
                const SaveOperation& edit = edits_[round % edits_.size()];
                const ReadOperation& read = reads_[round % reads_.size()];
                // Whatever it is with, either comes first in some thread.
                const bool readsFirst = round / edits_.size() % 2 != 0;
                if (!readsFirst) edit.run(app, inputs_);
                last = read.run(app, inputs_, work_.name(name));
                if (readsFirst) edit.run(app, inputs_);
            }
        } catch (const std::exception& failure) {
            return name + ": " + failure.what();
        }
        return last + test_support::readFile(work_.path() / (name + ".kvpkg"));
    }

    // What use() returns on each of many threads at once. With a stride each thread begins in
    // another way.
    std::vector<std::string> useOnManyThreads(std::size_t first, std::size_t stride,
                                              std::size_t rounds) const {
        std::latch start(kThreads);
        std::vector<std::string> results(kThreads);
        std::vector<std::thread> threads;
        for (std::size_t number = 0; number < kThreads; ++number) {
            threads.emplace_back([&, number] {
                start.arrive_and_wait();
                results[number] = use(std::to_string(number), first + number * stride, rounds);
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        return results;
    }

    const std::vector<SaveOperation> edits_ = edits();
    const std::vector<ReadOperation> reads_ = reads();
    // Made by no library of ours, which thus has not been used yet.
    const std::string example_ = test_support::goodPackage().bytes();
};

TEST_F(ThreadTest, FirstUseIsSafeOnManyThreadsAtOnce) {
    const std::size_t ways = edits_.size() * reads_.size();
    for (std::size_t first = 0; first < ways; first += kThreads / 4) {
        // A process that has used nothing yet.
        const int status = statusOf([&] {
            const auto results = useOnManyThreads(first, 1, 1);
            for (std::size_t number = 0; number < kThreads; ++number) {
                const std::string alone = use("alone", first + number, 1);
                if (results[number] == alone) continue;
                std::cerr << "differs: " << results[number] << std::endl;
                return 1;
            }
            return 0;
        });
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "from way " << first;
    }
}

TEST_F(ThreadTest, ManyThreadsDoWhatOneDoes) {
    const auto results = useOnManyThreads(0, 0, kRounds);
    EXPECT_EQ(std::set(results.begin(), results.end()), std::set{use("alone", 0, kRounds)});
}

}  // namespace
}  // namespace faults
