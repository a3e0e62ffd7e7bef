#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/qzapp/pictures/Picture.hpp"

namespace qzapp::pictures {

// A decoded picture. Each pixel has four bytes: red, green, blue, and alpha, by which the colours
// are not multiplied. Rows go from the top, without gaps.
struct Raster {
    static constexpr std::size_t kChannels = 4;

    explicit Raster(Size of) : size(of), pixels(kChannels * of.width * of.height) {}
    std::uint8_t* row(std::uint32_t y) { return pixels.data() + kChannels * size.width * y; }
    const std::uint8_t* row(std::uint32_t y) const {
        return pixels.data() + kChannels * size.width * y;
    }
    bool isOpaque() const;

    Size size;
    std::vector<std::uint8_t> pixels;
};

// Scales down: each new pixel is the mean of the area that it covers, transparent pixels giving no
// colour. The arithmetic is exact, so the result is the same everywhere. `size` is at most that of
// the raster and not empty, and the raster has at most kMaxPixels.
Raster shrunk(const Raster& raster, Size size);

}  // namespace qzapp::pictures
