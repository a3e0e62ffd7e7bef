#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace bench {

inline constexpr std::uint64_t kKiB = 1024;
inline constexpr std::uint64_t kMiB = 1024 * kKiB;
inline constexpr std::uint64_t kGiB = 1024 * kMiB;

// The folder $QZ_BENCH_DIR, in which the processes of one run share their files. Whoever starts the
// processes creates and removes it.
const std::filesystem::path& folder();

// A folder on a file system whose files can share blocks; empty if there is none.
const std::filesystem::path& reflinkFolder();

// These functions make a file of `size` bytes, or return the one that an earlier process has made.
// The compressible one is like a numerical model: little-endian doubles of smooth signals with
// noise in their low bits, which deflate to about half.
std::filesystem::path compressibleFile(std::uint64_t size);
std::filesystem::path randomFile(std::uint64_t size);

// A packaged app with the model compressibleFile(modelSize), also made only once.
std::filesystem::path packagedApp(std::uint64_t modelSize);

// A picture of the size of an app's screenshot. Like those of any picture file, its bytes do not
// shrink.
std::vector<std::uint8_t> picture();

std::u16string text(const std::filesystem::path& path);

}  // namespace bench
