#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

using Body = std::function<void(benchmark::State&)>;

// One case of the table, and what it is compared with in the same run. A body prepares what it needs
// and calls measure().
class Case {
public:
    Case(std::string name, Body ours);

    // `goal` is the most that ours may take, as a multiple of this baseline: its time, or its
    // amount where both report one. 0 when there is no goal.
    Case& against(const std::string& baseline, double goal, Body body);

private:
    std::string name_;
};

// What a body uses besides time: processor seconds, those of its child processes included, and the
// most memory that the process holds at once, over what it held before.
class Usage {
public:
    Usage();
    void report(benchmark::State& state) const;
    std::uint64_t peakMemory() const;  // in bytes

private:
    double processorSeconds_;
    std::uint64_t memory_;
};

// What this process and its children that have ended have had the file systems write since.
class WrittenBytes {
public:
    WrittenBytes() : before_(total()) {}
    std::uint64_t count() const { return total() - before_; }

private:
    static std::uint64_t total();
    std::uint64_t before_;
};

// Times `work` as often as the benchmark wants.
template <class Work>
void measure(benchmark::State& state, Work work) {
    const Usage usage;
    for (auto _ : state)
        work();
    usage.report(state);
}

// The same for work that does `count` things at once: the table shows the time for each of them, by
// the median of all times that the work was done, since work this short is easily disturbed.
void measureEach(benchmark::State& state, std::size_t count, const std::function<void()>& work);

// A baseline that is no work but a time, which the goal states.
void allow(benchmark::State& state, double seconds);

// Has the table compare this instead of the time: so many bytes an iteration.
void reportAmount(benchmark::State& state, std::uint64_t bytes);

// Runs a command of the shell; a status other than 0 ends the benchmark.
void run(benchmark::State& state, const std::string& command);

// Starts a program and waits for its end; `outputFile` gets what it prints. A status other than 0
// ends the benchmark.
void runProgram(benchmark::State& state, const std::vector<std::string>& arguments,
                const std::string& outputFile = "/dev/null");

// Runs a command that prints how many seconds something took in its own process; the table shows
// these.
void measureItself(benchmark::State& state, const std::string& command);

}  // namespace bench
