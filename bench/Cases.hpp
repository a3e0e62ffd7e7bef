#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

using Body = std::function<void(benchmark::State&)>;

// One case of the table: our own body, and the baselines that it is compared with in the same run.
// A body prepares what it needs and calls measure().
class Case {
public:
    Case(std::string name, Body ours);

    // Adds a baseline. `goal` is the most that our body may take as a multiple of this baseline, in
    // time, or in amount if both report one; 0 if there is no goal.
    Case& against(const std::string& baseline, double goal, Body body);

private:
    std::string name_;
};

// What a body uses from the construction of this object on, besides time: processor seconds,
// including those of child processes, and the peak of memory above what the process held at
// construction.
class Usage {
public:
    Usage();
    void report(benchmark::State& state) const;
    std::uint64_t peakMemory() const;  // in bytes

private:
    double processorSeconds_;
    std::uint64_t memory_;
};

// How many bytes this process, and those of its children that have ended, have had file systems
// write since the construction of this object.
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

// Like measure(), for work that does `count` things: the table shows the time for one of them. It
// takes the median over all rounds, because such short work is easily disturbed.
void measureEach(benchmark::State& state, std::size_t count, const std::function<void()>& work);

// For a baseline that does nothing, but stands for a fixed time.
void allow(benchmark::State& state, double seconds);

// Makes the table compare this amount, in bytes for each iteration, instead of the time.
void reportAmount(benchmark::State& state, std::uint64_t bytes);

// Runs a shell command. A status other than 0 ends the benchmark with an error.
void run(benchmark::State& state, const std::string& command);

// Starts a program, writes what it prints to `outputFile`, and waits for its end. A status other
// than 0 ends the benchmark with an error.
void runProgram(benchmark::State& state, const std::vector<std::string>& arguments,
                const std::string& outputFile = "/dev/null");

// Runs a command that measures something in its own process and prints the seconds that it took.
// The table shows these.
void measureItself(benchmark::State& state, const std::string& command);

}  // namespace bench
