#include <foundation/ProcessMark.hpp>
#include <foundation/Threads.hpp>

#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <limits>
#include <mutex>
#include <numeric>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

std::atomic<int> threadsStarted = 0;
std::atomic<bool> noThreads = false;

}  // namespace

// Stands in front of the system's, so that a test can count threads and let their start fail.
extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
    static const auto real =
        reinterpret_cast<decltype(&pthread_create)>(::dlsym(RTLD_NEXT, "pthread_create"));
    if (noThreads) return EAGAIN;
    ++threadsStarted;
    return real(thread, attributes, start, argument);
}

namespace foundation::threads {
namespace {

constexpr std::size_t kItems = 200;
constexpr int kNotPermitted = 77;

class PipelineTest : public testing::Test {
protected:
    PipelineTest() {
        setLimit(4);
        threadsStarted = 0;
        pipeline_.slots = 6;
        pipeline_.feed = [this](std::size_t slot) { return feed(slot); };
        pipeline_.work = [this](std::size_t slot) { work(slot); };
        pipeline_.take = [this](std::size_t slot) { taken_.push_back(slots_.at(slot)); };
    }
    ~PipelineTest() override {
        noThreads = false;
        setLimit(0);
    }

    bool feed(std::size_t slot) {
        if (fed_ == kItems) return false;
        slots_.at(slot) = fed_++;
        return true;
    }

    void work(std::size_t slot) {
        const int now = ++working_;
        for (int most = mostWorking_;
             now > most && !mostWorking_.compare_exchange_weak(most, now);) {
        }
        {
            const std::lock_guard lock(mutex_);
            workedOn_.push_back(slots_.at(slot));
        }
        slots_.at(slot) *= 10;
        --working_;
    }

    static std::vector<std::size_t> numbers(std::size_t count, std::size_t factor) {
        std::vector<std::size_t> all(count);
        std::iota(all.begin(), all.end(), std::size_t{0});
        for (std::size_t& each : all)
            each *= factor;
        return all;
    }

    Pipeline pipeline_;
    std::vector<std::size_t> slots_ = std::vector<std::size_t>(6);
    std::size_t fed_ = 0;
    std::vector<std::size_t> taken_, workedOn_;
    std::mutex mutex_;
    std::atomic<int> working_ = 0, mostWorking_ = 0;
};

struct Shape {
    unsigned limit;
    std::size_t slots, workers;
    bool noThreads;
    int mostThreads;
};

TEST_F(PipelineTest, TakesEveryItemInOrderHoweverManyThreadsThereAre) {
    constexpr std::size_t kAny = static_cast<std::size_t>(-1);
    const Shape shapes[] = {{4, 6, kAny, false, 3}, {2, 6, kAny, false, 1}, {1, 6, kAny, false, 0},
                            {8, 1, kAny, false, 0}, {8, 2, kAny, false, 1}, {4, 6, 1, false, 1},
                            {4, 6, 2, false, 2},    {4, 6, kAny, true, 0}};
    for (const Shape& shape : shapes) {
        SCOPED_TRACE(&shape - shapes);
        setLimit(shape.limit);
        noThreads = shape.noThreads;
        pipeline_.slots = shape.slots;
        pipeline_.workers = shape.workers;
        fed_ = 0;
        taken_.clear();
        workedOn_.clear();
        threadsStarted = 0;
        mostWorking_ = 0;
        pipeline_.run();
        EXPECT_EQ(taken_, numbers(kItems, 10));
        EXPECT_LE(threadsStarted, shape.mostThreads);
        EXPECT_LE(static_cast<std::size_t>(mostWorking_), std::min(shape.workers, kItems));
        if (shape.workers == 1) {
            EXPECT_EQ(workedOn_, numbers(kItems, 1));
        }
    }
}

TEST_F(PipelineTest, WorksOnSeveralItemsAtOnceAndStartsNoThreadForOne) {
    std::atomic<int> together = 0;
    pipeline_.work = [&](std::size_t) {
        ++together;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (together < 2 && std::chrono::steady_clock::now() < end)
            std::this_thread::yield();
    };
    fed_ = kItems - 1;
    together = 1;
    pipeline_.run();
    EXPECT_EQ(threadsStarted, 0);

    fed_ = kItems - 2;
    together = 0;
    pipeline_.run();
    EXPECT_EQ(together, 2);
    EXPECT_EQ(threadsStarted, 1);
}

TEST_F(PipelineTest, HoldsNoMoreItemsThanSlots) {
    std::size_t most = 0;
    pipeline_.feed = [&](std::size_t slot) {
        most = std::max(most, fed_ - taken_.size());
        return feed(slot);
    };
    pipeline_.run();
    EXPECT_LT(most, pipeline_.slots);
}

TEST_F(PipelineTest, ThrowsTheFirstFailureInOrder) {
    const auto failAt = [](std::size_t item, std::size_t limit, const char* what) {
        if (item >= limit) throw std::runtime_error(what + std::to_string(item));
    };
    pipeline_.work = [&](std::size_t slot) { failAt(slots_.at(slot), 50, "work "); };
    try {
        pipeline_.run();
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "work 50");
    }
    EXPECT_EQ(taken_, numbers(50, 1));

    for (const bool inFeed : {true, false}) {
        fed_ = 0;
        pipeline_.work = [](std::size_t) {};
        pipeline_.feed = [&](std::size_t slot) {
            if (inFeed) failAt(fed_, 70, "feed ");
            return feed(slot);
        };
        pipeline_.take = [&](std::size_t slot) { failAt(slots_.at(slot), 70, "take "); };
        EXPECT_THROW(pipeline_.run(), std::runtime_error);
        EXPECT_LE(fed_, 70 + pipeline_.slots);
    }
    // The helpers are given back.
    pipeline_.feed = [&](std::size_t slot) { return feed(slot); };
    pipeline_.take = [](std::size_t) {};
    fed_ = 0;
    threadsStarted = 0;
    pipeline_.run();
    EXPECT_GT(threadsStarted, 0);
}

// Each item of the outer pipeline is a pipeline of its own.
TEST_F(PipelineTest, SharesOneLimitInTheWholeProcess) {
    setLimit(3);
    std::mutex mutex;
    std::set<std::thread::id> busy;
    std::size_t most = 0;
    pipeline_.work = [&](std::size_t) {
        std::size_t left = 50;
        Pipeline inner;
        inner.slots = 4;
        inner.feed = [&](std::size_t) { return left-- > 0; };
        inner.work = [&](std::size_t) {
            {
                const std::lock_guard lock(mutex);
                busy.insert(std::this_thread::get_id());
                most = std::max(most, busy.size());
            }
            std::this_thread::yield();
            const std::lock_guard lock(mutex);
            busy.erase(std::this_thread::get_id());
        };
        inner.take = [](std::size_t) {};
        inner.run();
    };
    pipeline_.run();
    EXPECT_LE(most, 3U);
}

TEST_F(PipelineTest, HelpersHandleNoSignals) {
    const pthread_t caller = ::pthread_self();
    std::atomic<int> helped = 0, blocked = 0;
    pipeline_.work = [&](std::size_t) {
        std::this_thread::yield();
        if (::pthread_equal(::pthread_self(), caller) != 0) return;
        ++helped;
        sigset_t mask;
        ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        blocked += ::sigismember(&mask, SIGTERM) == 1 && ::sigismember(&mask, SIGINT) == 1;
    };
    for (int round = 0; helped == 0 && round < 100'000; ++round) {
        fed_ = 0;
        pipeline_.run();
    }
    ASSERT_GT(helped, 0) << "no helper could be started";
    EXPECT_EQ(blocked, helped);
    sigset_t mine;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mine);
    EXPECT_EQ(::sigismember(&mine, SIGTERM), 0);
}

// The sanitizers' allocators can wait for ever in a child that is forked while another thread uses
// them.
#if !defined(QZ_SANITIZED)
TEST_F(PipelineTest, EndsInAForkedChildAndGoesOnInTheParent) {
    pid_t child = -1;
    pipeline_.feed = [&](std::size_t slot) {
        if (fed_ == 20) child = ::fork();
        return feed(slot);
    };
    const auto finish = [&](int status) {
        if (child == 0) ::_exit(status);
    };
    try {
        pipeline_.run();
        finish(1);
    } catch (const std::runtime_error&) {
        // The child has helpers of its own to start.
        Pipeline other;
        int left = 20;
        other.slots = 4;
        other.feed = [&](std::size_t) { return left-- > 0; };
        other.work = other.take = [](std::size_t) {};
        threadsStarted = 0;
        other.run();
        finish(threadsStarted > 0 ? 0 : 2);
    }
    EXPECT_EQ(taken_, numbers(kItems, 10));
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}
#endif

// The first processes of two containers have the same number. Programs that start containers may
// make processes without the handlers of fork().
class ProcessMarkTest : public testing::TestWithParam<pid_t (*)()> {};

INSTANTIATE_TEST_SUITE_P(MadeBy, ProcessMarkTest, testing::Values(&::fork, &::_Fork));

TEST_P(ProcessMarkTest, KnowsAChildWithTheNumberOfItsParent) {
    const auto inContainer = [](auto work) {
        if (::unshare(CLONE_NEWPID) != 0) ::_exit(kNotPermitted);
        const pid_t first = GetParam()();
        if (first == 0) ::_exit(work());
        int status = -1;
        ::waitpid(first, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(inContainer([&] {
            const ProcessMark mark;
            const pid_t number = ::getpid();
            const int status = inContainer([&] {
                return ::getpid() != number ? 2 : mark.isOfThisProcess() ? 1 : 0;
            });
            return status == 0 && !mark.isOfThisProcess() ? 3 : status;
        }));
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    if (status == W_EXITCODE(kNotPermitted, 0)) GTEST_SKIP() << "containers are not permitted here";
    EXPECT_EQ(status, 0);
}

TEST(LimitTest, IsWhatTheProcessMayUseUnlessItIsSet) {
    setLimit(0);
    const unsigned byDefault = limit();
    EXPECT_GE(byDefault, 1U);
    EXPECT_LE(byDefault, std::min(8U, std::max(1U, std::thread::hardware_concurrency())));
    setLimit(5);
    EXPECT_EQ(limit(), 5U);
    setLimit(std::numeric_limits<unsigned>::max());
    EXPECT_EQ(limit(), kMostThreads);
    setLimit(0);
    EXPECT_EQ(limit(), byDefault);
}

}  // namespace
}  // namespace foundation::threads
