#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qzapp {

// What desktops are given as thumbnails: an image whose size its bytes say, that is neither large nor
// unpacks to much more than it seems to be.
inline constexpr std::size_t kMaxPictureBytes = std::size_t{4} << 20;
inline constexpr std::uint32_t kMaxPictureSide = 8192;
bool isThumbnail(std::string_view bytes);

}  // namespace qzapp
