#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qzapp {

// A kind of image as its bytes show it.
struct ImageKind {
    std::string_view format;     // "png"
    const char* mediaType;       // "image/png"
    std::string_view signature;  // its first bytes
    std::string_view mark;       // further ones, where those are not enough, at `markAt`
    std::size_t markAt;
    std::string_view end;  // its last bytes, where they are always the same
};

// Of those that browsers show; null for anything else.
const ImageKind* imageKindOf(std::string_view bytes);

// What desktops are given as thumbnails: a PNG, JPEG or GIF image that is neither large nor unpacks to
// much more than it seems to be.
inline constexpr std::size_t kMaxPictureBytes = std::size_t{4} << 20;
inline constexpr std::uint32_t kMaxPictureSide = 8192;
bool isThumbnail(std::string_view bytes);

}  // namespace qzapp
