#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qzapp::pictures {

struct Size {
    std::uint32_t width = 0, height = 0;
    friend bool operator==(const Size&, const Size&) = default;
};

// What is looked into at most. The number of pixels is that of the decoded image; for a GIF, of its
// first frame too.
inline constexpr std::size_t kMaxBytes = std::size_t{32} << 20;
inline constexpr std::uint32_t kMaxSide = 16384;
inline constexpr std::uint64_t kMaxPixels = 32'000'000;

// The box that pictures for catalogues and pages are scaled to.
inline constexpr Size kBox{480, 360};

// A scaled picture: a whole PNG or JPEG file.
struct ScaledPicture {
    std::string bytes;
    std::string_view mediaType;  // "image/png" or "image/jpeg"
    Size size, original;
};

// Why there is no scaled picture.
enum class Refusal : std::uint8_t {
    NoImage,        // neither PNG nor JPEG nor GIF
    TooManyBytes,   // more than kMaxBytes
    TooManyPixels,  // more than kMaxPixels, or a side of more than kMaxSide
    Damaged,        // cannot be decoded
    NoMemory,       // decoding needs more memory than the process may take
    Killed,         // the process that decoded it ended, or did not answer
    NotNow,         // no process could be started: the same image may be scaled at another time
};

// The reason as a sentence without its end, such as "it is damaged".
std::string textOf(Refusal refusal);

// The size of a picture that is scaled down to fit into the box, each side at least 1. One that
// fits stays as it is.
Size fitted(Size size, Size box);

}  // namespace qzapp::pictures
