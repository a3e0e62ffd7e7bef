#include "bench/Cases.hpp"

#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <utility>

namespace bench {

namespace {

std::uint64_t statusKiB(const std::string& key) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        std::uint64_t value = 0;
        if (word == key && status >> value) return value;
    }
    return 0;
}

double processorSeconds() {
    double seconds = 0;
    for (const auto who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        struct rusage usage {};
        getrusage(who, &usage);
        for (const timeval& time : {usage.ru_utime, usage.ru_stime})
            seconds += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    }
    return seconds;
}

void add(const std::string& name, Body body) {
    benchmark::RegisterBenchmark(name.c_str(), std::move(body))
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

}  // namespace

Case::Case(std::string name, Body ours) : name_(std::move(name)) {
    add(name_ + "/qz", std::move(ours));
}

Case& Case::against(const std::string& baseline, double goal, Body body) {
    add(name_ + "/" + baseline, [goal, body = std::move(body)](benchmark::State& state) {
        body(state);
        state.counters["goal"] = goal;
    });
    return *this;
}

Usage::Usage() : processorSeconds_(processorSeconds()), memory_(statusKiB("VmRSS:")) {
    std::ofstream("/proc/self/clear_refs") << "5";  // resets VmHWM
}

void Usage::report(benchmark::State& state) const {
    const std::uint64_t peak = statusKiB("VmHWM:");
    state.counters["peakMiB"] = static_cast<double>(peak - std::min(memory_, peak)) / 1024.0;
    state.counters["processorSeconds"] = benchmark::Counter(processorSeconds() - processorSeconds_,
                                                            benchmark::Counter::kAvgIterations);
}

void reportAmount(benchmark::State& state, std::uint64_t bytes) {
    state.counters["amount"] = static_cast<double>(bytes);
}

void run(benchmark::State& state, const std::string& command) {
    if (std::system(command.c_str()) != 0) state.SkipWithError(("failed: " + command).c_str());
}

}  // namespace bench
