#include "tools/qzapp/pictures/Raster.hpp"

#include <algorithm>
#include <cstddef>

namespace qzapp::pictures {
namespace {

constexpr std::size_t kChannels = Raster::kChannels;
constexpr std::size_t kAlpha = kChannels - 1;
constexpr std::uint8_t kOpaque = 255;

// Which of `to` new pixels an old pixel falls on, of `from` in a row: all of it on `first`, but for
// `second` parts of `to` that fall on the next one.
struct Share {
    std::uint32_t first, second;
};

std::vector<Share> sharesOf(std::uint32_t from, std::uint32_t to) {
    std::vector<Share> shares(from);
    for (std::uint32_t at = 0; at < from; ++at) {
        // An old pixel is `to` wide and a new one `from`, which is not less.
        const std::uint64_t begin = std::uint64_t{at} * to, end = begin + to;
        const auto first = static_cast<std::uint32_t>(begin / from);
        const std::uint64_t border = std::uint64_t{first + 1} * from;
        shares[at] = {first, static_cast<std::uint32_t>(end > border ? end - border : 0)};
    }
    return shares;
}

// Adds a row of pixels, their colours multiplied by alpha, to the sums of the new columns. Such a
// sum is at most 255 * 255 * kMaxSide, which 32 bits hold.
void addRow(const std::uint8_t* pixels, const std::vector<Share>& shares, std::uint32_t whole,
            std::vector<std::uint32_t>& sums) {
    for (const Share& share : shares) {
        const std::uint32_t alpha = pixels[kAlpha];
        std::uint32_t* const sum = &sums[kChannels * share.first];
        const std::uint32_t first = whole - share.second;
        for (std::size_t c = 0; c < kChannels; ++c) {
            const std::uint32_t value = c == kAlpha ? alpha : pixels[c] * alpha;
            sum[c] += first * value;
            if (share.second != 0) sum[kChannels + c] += share.second * value;
        }
        pixels += kChannels;
    }
}

// Writes a row of pixels from sums over areas that weigh `area`.
void writeRow(const std::vector<std::uint64_t>& sums, std::uint64_t area, std::uint8_t* pixels) {
    for (std::size_t at = 0; at + kChannels <= sums.size(); at += kChannels) {
        const std::uint64_t alpha = sums[at + kAlpha];
        for (std::size_t c = 0; c < kAlpha; ++c) {
            pixels[at + c] =
                alpha == 0 ? 0 : static_cast<std::uint8_t>((sums[at + c] + alpha / 2) / alpha);
        }
        pixels[at + kAlpha] = static_cast<std::uint8_t>((alpha + area / 2) / area);
    }
}

}  // namespace

bool Raster::isOpaque() const {
    for (std::size_t at = kAlpha; at < pixels.size(); at += kChannels) {
        if (pixels[at] != kOpaque) return false;
    }
    return true;
}

Raster shrunk(const Raster& raster, Size size) {
    const Size from = raster.size;
    const std::vector<Share> columns = sharesOf(from.width, size.width);
    const std::vector<Share> rows = sharesOf(from.height, size.height);
    const std::size_t width = kChannels * size.width;
    std::vector<std::uint32_t> row(width + kChannels);  // nothing falls behind the last column
    std::vector<std::uint64_t> sums(width), next(width);
    const std::uint64_t area = std::uint64_t{from.width} * from.height;
    Raster result(size);
    for (std::uint32_t y = 0; y < from.height; ++y) {
        std::ranges::fill(row, 0);
        addRow(raster.row(y), columns, size.width, row);
        const Share share = rows[y];
        for (std::size_t at = 0; at < width; ++at) {
            sums[at] += std::uint64_t{row[at]} * (size.height - share.second);
            next[at] += std::uint64_t{row[at]} * share.second;
        }
        if (y + 1 < from.height && rows[y + 1].first == share.first) continue;
        writeRow(sums, area, result.row(share.first));
        sums.swap(next);
        std::ranges::fill(next, 0);
    }
    return result;
}

}  // namespace qzapp::pictures
