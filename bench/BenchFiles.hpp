#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace bench {

inline constexpr std::uint64_t kKiB = 1024;
inline constexpr std::uint64_t kMiB = 1024 * kKiB;
inline constexpr std::uint64_t kGiB = 1024 * kMiB;

// Where files are kept between the processes of one run: $QZ_BENCH_DIR, which whoever starts the
// processes makes and removes.
const std::filesystem::path& folder();

// On a file system whose files can share blocks; empty when there is none.
const std::filesystem::path& reflinkFolder();

// A file of `size` bytes, made once. The first kind is what a numerical model holds: little-endian
// doubles of smooth signals with noise in their low bits, which deflate to about half.
std::filesystem::path compressibleFile(std::uint64_t size);
std::filesystem::path randomFile(std::uint64_t size);

// A packaged app with the model compressibleFile(modelSize), made once.
std::filesystem::path packagedApp(std::uint64_t modelSize);

// As long as that of an app, and with bytes that do not shrink, like those of any picture file.
std::vector<std::uint8_t> picture();

std::u16string text(const std::filesystem::path& path);

}  // namespace bench
