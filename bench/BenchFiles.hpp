#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <filesystem>
#include <string>

namespace bench {

inline constexpr std::uint64_t kKiB = 1024;
inline constexpr std::uint64_t kMiB = 1024 * kKiB;
inline constexpr std::uint64_t kGiB = 1024 * kMiB;

// A folder for this run, removed at exit: below $QZ_BENCH_DIR, else below the system's for
// temporary files.
const std::filesystem::path& folder();

// A file of `size` bytes, made once. The first kind is what a numerical model holds: little-endian
// doubles of smooth signals with noise in their low bits, which deflate to about half.
std::filesystem::path compressibleFile(std::uint64_t size);
std::filesystem::path randomFile(std::uint64_t size);

// A packaged app with the model compressibleFile(modelSize), made once.
std::filesystem::path packagedApp(std::uint64_t modelSize);

// Runs a command of the shell; a status other than 0 ends the benchmark.
void run(benchmark::State& state, const std::string& command);

// Reports the most memory that the process held since the last call, over what it held then, as the
// counter "peakMiB".
class PeakMemory {
public:
    PeakMemory();
    void report(benchmark::State& state) const;

private:
    std::uint64_t before_;
};

std::u16string text(const std::filesystem::path& path);

}  // namespace bench
