#include "bench/Cases.hpp"

#include <sys/resource.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
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

double medianOf(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
}

void reportSeconds(benchmark::State& state, double seconds) {
    state.counters["seconds"] = seconds;
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
    state.counters["peakMiB"] = static_cast<double>(peakMemory()) / (1024.0 * 1024.0);
    state.counters["processorSeconds"] = benchmark::Counter(processorSeconds() - processorSeconds_,
                                                            benchmark::Counter::kAvgIterations);
}

void measureEach(benchmark::State& state, std::size_t count, const std::function<void()>& work) {
    using Clock = std::chrono::steady_clock;
    std::vector<double> times;
    measure(state, [&] {
        const auto start = Clock::now();
        work();
        times.push_back(std::chrono::duration<double>(Clock::now() - start).count());
    });
    reportSeconds(state, medianOf(std::move(times)) / static_cast<double>(count));
}

std::uint64_t Usage::peakMemory() const {
    const std::uint64_t peak = statusKiB("VmHWM:");
    return (peak - std::min(memory_, peak)) * 1024;
}

std::uint64_t WrittenBytes::total() {
    constexpr std::uint64_t kBlock = 512;  // the unit of ru_oublock on every file system
    std::uint64_t blocks = 0;
    for (const auto who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        struct rusage usage {};
        getrusage(who, &usage);
        blocks += static_cast<std::uint64_t>(usage.ru_oublock);
    }
    return blocks * kBlock;
}

void allow(benchmark::State& state, double seconds) {
    for (auto _ : state) {
    }
    reportSeconds(state, seconds);
}

void reportAmount(benchmark::State& state, std::uint64_t bytes) {
    state.counters["amount"] = static_cast<double>(bytes);
}

void run(benchmark::State& state, const std::string& command) {
    if (std::system(command.c_str()) != 0) state.SkipWithError(("failed: " + command).c_str());
}

void runProgram(benchmark::State& state, const std::vector<std::string>& arguments,
                const std::string& outputFile) {
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outputFile.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t process = 0;
    int status = -1;
    if (posix_spawn(&process, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
        waitpid(process, &status, 0);
    }
    posix_spawn_file_actions_destroy(&actions);
    if (status != 0) state.SkipWithError(("failed: " + arguments[0]).c_str());
}

void measureItself(benchmark::State& state, const std::string& command) {
    std::vector<double> times;
    for (auto _ : state) {
        double seconds = 0;
        std::FILE* const output = popen(command.c_str(), "r");
        const bool isRead = output && std::fscanf(output, "%lf", &seconds) == 1;
        if (!output || pclose(output) != 0 || !isRead) {
            state.SkipWithError(("failed: " + command).c_str());
            return;
        }
        times.push_back(seconds);
    }
    reportSeconds(state, medianOf(std::move(times)));
}

}  // namespace bench
