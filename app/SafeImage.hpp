#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qzapp {

inline constexpr std::size_t kMaxPictureBytes = std::size_t{4} << 20;
inline constexpr std::uint32_t kMaxPictureSide = 8192;

// Whether an image may be handed to the image library of a desktop, which would decode whatever a
// stranger's app contains: it must be a PNG, JPEG or GIF of at most kMaxPictureBytes, with at most
// kMaxPictureSide pixels on each side, and must not decompress to much more than its size in pixels
// takes.
bool isSafeImage(std::string_view bytes);

}  // namespace qzapp
