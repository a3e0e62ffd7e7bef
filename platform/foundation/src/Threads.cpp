#include <foundation/Threads.hpp>

#include <foundation/ProcessMark.hpp>

#include <pthread.h>
#include <sched.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <fstream>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace foundation::threads {

namespace {

constexpr unsigned kMostByDefault = 8;

unsigned processorsOfAffinity() noexcept {
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof allowed, &allowed) == 0) {
        return static_cast<unsigned>(std::max(CPU_COUNT(&allowed), 1));
    }
    return std::max(std::thread::hardware_concurrency(), 1U);
}

// The path of the control group that the process is in, from the line "0::/path".
std::string controlGroup() {
    std::ifstream groups("/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {
        if (line.starts_with("0::/")) return line.substr(3);
    }
    return "/";
}

// The processors that cpu.max ("quota period" or "max period") comes to, rounded up.
unsigned processorsOfGroup(const std::string& group) {
    std::ifstream file("/sys/fs/cgroup" + group + "/cpu.max");
    unsigned long quota = 0, period = 0;
    if (!(file >> quota >> period) || period == 0) return kMostByDefault;
    return static_cast<unsigned>(
        std::clamp((quota + period - 1) / period, 1UL, static_cast<unsigned long>(kMostByDefault)));
}

// The quota of every group up to the root holds.
unsigned processorsOfQuota() {
    unsigned least = kMostByDefault;
    std::string group = controlGroup();
    while (true) {
        least = std::min(least, processorsOfGroup(group));
        const std::size_t slash = group.rfind('/');
        if (slash == std::string::npos || group.size() <= 1) return least;
        group.resize(slash);
    }
}

unsigned defaultLimit() noexcept {
    try {
        return std::min({processorsOfAffinity(), processorsOfQuota(), kMostByDefault});
    } catch (const std::bad_alloc&) {
        return 1;
    }
}

constinit std::atomic<unsigned> chosenLimit = 0;  // 0: the default
// Helpers of all calls together. A forked child has none of them.
constinit std::atomic<unsigned> helpersOfProcess = 0;

void countNoHelpers() noexcept {
    helpersOfProcess = 0;
}

bool reserveHelper() noexcept {
    static const int registered = pthread_atfork(nullptr, nullptr, countNoHelpers);
    static_cast<void>(registered);
    unsigned running = helpersOfProcess;
    while (running + 1 < limit()) {
        if (helpersOfProcess.compare_exchange_weak(running, running + 1)) return true;
    }
    return false;
}

void releaseHelper() noexcept {
    --helpersOfProcess;
}

// Threads inherit the mask of the thread that starts them.
class SignalsBlocked {
public:
    SignalsBlocked() noexcept {
        sigset_t all;
        sigfillset(&all);
        // These are about the thread itself, and end the process if they are blocked.
        for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS})
            sigdelset(&all, own);
        pthread_sigmask(SIG_SETMASK, &all, &earlier_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &earlier_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t earlier_;
};

// One call of Pipeline::run(). Items are numbered from 0; item n is in slot n % slots.
class Run {
public:
    explicit Run(const Pipeline& stages) : stages_(&stages), outcomes_(stages.slots) {
        if (stages.slots == 0 || stages.workers == 0) {
            throw std::invalid_argument("a pipeline needs a slot and a worker");
        }
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    ~Run() {
        {
            const std::lock_guard lock(mutex_);
            isStopping_ = true;
        }
        changed_.notify_all();
        for (std::thread& helper : helpers_) {
            helper.join();
            releaseHelper();
        }
    }

    void run() {
        std::unique_lock lock(mutex_);
        while (!hasEnded_ || taken_ < fed_) {
            if (taken_ < fed_ && outcomeOf(taken_).isDone) {
                takeOne(lock);
            } else if (!hasEnded_ && fed_ - taken_ < stages_->slots) {
                feedOne(lock);
            } else if (mayWork()) {
                workOnOne(lock);
            } else {
                changed_.wait(lock);
            }
        }
    }

    bool isInSameProcess() const noexcept { return process_.isOfThisProcess(); }

private:
    struct Outcome {
        bool isDone = false;
        std::exception_ptr failure;
    };

    Outcome& outcomeOf(std::size_t item) { return outcomes_[slotOf(item)]; }
    std::size_t slotOf(std::size_t item) const noexcept { return item % stages_->slots; }
    bool mayWork() const noexcept { return started_ < fed_ && working_ < stages_->workers; }

    void feedOne(std::unique_lock<std::mutex>& lock) {
        lock.unlock();
        const bool hasNext = stages_->feed(slotOf(fed_));
        requireSameProcess();
        lock.lock();
        if (!hasNext) {
            hasEnded_ = true;
            return;
        }
        outcomeOf(fed_) = {};
        ++fed_;
        if (fed_ - taken_ > 1) startHelper();
        changed_.notify_all();
    }

    void takeOne(std::unique_lock<std::mutex>& lock) {
        if (outcomeOf(taken_).failure) std::rethrow_exception(outcomeOf(taken_).failure);
        lock.unlock();
        stages_->take(slotOf(taken_));
        requireSameProcess();
        lock.lock();
        ++taken_;
    }

    void workOnOne(std::unique_lock<std::mutex>& lock) noexcept {
        const std::size_t item = started_++;
        ++working_;
        lock.unlock();
        std::exception_ptr failure;
        try {
            stages_->work(slotOf(item));
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        --working_;
        outcomeOf(item) = {true, std::move(failure)};
        changed_.notify_all();
    }

    // Does nothing if there are enough. The caller works as well unless only one thread may.
    void startHelper() noexcept {
        const std::size_t most = std::min(stages_->workers, stages_->slots - 1);
        if (cannotStart_ || helpers_.size() >= most || started_ == fed_ || !reserveHelper()) return;
        try {
            const SignalsBlocked blocked;
            helpers_.emplace_back([this] { help(); });
        } catch (const std::exception&) {  // too many threads, or too little memory
            cannotStart_ = true;
            releaseHelper();
        }
    }

    void help() noexcept {
        std::unique_lock lock(mutex_);
        while (!isStopping_) {
            if (mayWork()) {
                workOnOne(lock);
            } else {
                changed_.wait(lock);
            }
        }
    }

    void requireSameProcess() const {
        if (isInSameProcess()) return;
        throw std::runtime_error(
            "the process was forked while several of its threads were working");
    }

    const Pipeline* stages_;
    const ProcessMark process_;
    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by the mutex, but only the calling thread changes what is fed, taken and ended.
    std::vector<Outcome> outcomes_;
    std::size_t fed_ = 0, started_ = 0, taken_ = 0, working_ = 0;
    bool hasEnded_ = false;
    bool isStopping_ = false;
    bool cannotStart_ = false;
    std::vector<std::thread> helpers_;
};

// The helpers do not exist in a forked child, and what they wait for can be neither ended nor
// destroyed there.
struct EndRun {
    void operator()(Run* run) const noexcept {
        if (run->isInSameProcess()) delete run;
    }
};

}  // namespace

unsigned limit() noexcept {
    const unsigned chosen = chosenLimit;
    if (chosen > 0) return chosen;
    static const unsigned byDefault = defaultLimit();
    return byDefault;
}

void setLimit(unsigned most) noexcept {
    chosenLimit = std::min(most, kMostThreads);
}

void Pipeline::run() const {
    const std::unique_ptr<Run, EndRun> run(new Run(*this));
    run->run();
}

}  // namespace foundation::threads
