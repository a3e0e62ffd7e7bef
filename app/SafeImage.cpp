#include "app/SafeImage.hpp"

#include <opc/ImageTypes.hpp>

#include <algorithm>
#include <array>

namespace qzapp {
namespace {

// The most pixels in all frames of an image together.
constexpr std::uint64_t kMaxPicturePixels = std::uint64_t{kMaxPictureSide} * kMaxPictureSide;

struct ImageSize {
    std::uint32_t width = 0, height = 0;
};

std::uint32_t byteAt(std::string_view bytes, std::size_t at) {
    return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0;
}

std::uint32_t bigEndian(std::string_view bytes, std::size_t at, std::size_t length) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < length; ++i)
        value = value << 8 | byteAt(bytes, at + i);
    return value;
}

std::uint32_t littleEndian16(std::string_view bytes, std::size_t at) {
    return byteAt(bytes, at + 1) << 8 | byteAt(bytes, at);
}

bool isModest(const ImageSize& size) {
    return size.width > 0 && size.width <= kMaxPictureSide && size.height > 0 &&
           size.height <= kMaxPictureSide;
}

// Each format below is walked only as far as the bytes go: an image that is cut off passes if what
// is there does.

// The offset after the chain of data blocks that begins at `at` and ends with an empty block.
std::size_t afterGifData(std::string_view bytes, std::size_t at) {
    while (const std::uint32_t length = byteAt(bytes, at))
        at += 1 + length;
    return at + 1;
}

// The size in bytes of the colour table that a GIF flags byte announces.
std::size_t gifTableBytes(std::uint32_t flags) {
    return (flags & 0x80) == 0 ? 0 : std::size_t{3} << ((flags & 7) + 1);
}

// Checks each frame too, because a frame may be larger than the image, and there may be any number
// of them.
bool isModestGif(std::string_view bytes) {
    if (!isModest({littleEndian16(bytes, 6), littleEndian16(bytes, 8)})) return false;
    std::uint64_t pixels = 0;
    for (std::size_t at = 13 + gifTableBytes(byteAt(bytes, 10)); at < bytes.size();) {
        const std::uint32_t block = byteAt(bytes, at);
        if (block == ';') return true;
        if (block == '!') {
            at = afterGifData(bytes, at + 2);
            continue;
        }
        const ImageSize frame{littleEndian16(bytes, at + 5), littleEndian16(bytes, at + 7)};
        pixels += std::uint64_t{frame.width} * frame.height;
        if (block != ',' || !isModest(frame) || pixels > kMaxPicturePixels) return false;
        at = afterGifData(bytes, at + 11 + gifTableBytes(byteAt(bytes, at + 9)));
    }
    return true;
}

// The offset of the next marker after the data of a scan. Within the data, 0xFF is followed by a
// zero or is a restart marker.
std::size_t afterJpegScan(std::string_view bytes, std::size_t at) {
    const auto isData = [](std::uint32_t next) {
        return next == 0 || (next >= 0xD0 && next <= 0xD7);
    };
    while (at < bytes.size() && (byteAt(bytes, at) != 0xFF || isData(byteAt(bytes, at + 1))))
        ++at;
    return at;
}

// Every frame header is checked, because decoders differ in which one they use.
bool isModestJpeg(std::string_view bytes) {
    bool hasFrame = false;
    for (std::size_t at = 2; at < bytes.size();) {
        const std::uint32_t marker = byteAt(bytes, at + 1);
        // Markers below 0xC0 and from 0xD0 to 0xD8 have no segment and cannot come between
        // segments.
        if (byteAt(bytes, at) != 0xFF || marker < 0xC0 || (marker >= 0xD0 && marker <= 0xD8))
            return false;
        if (marker == 0xD9) break;
        if (marker == 0xFF) {  // a fill byte
            ++at;
            continue;
        }
        const bool isFrame =
            marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        const ImageSize size{bigEndian(bytes, at + 7, 2), bigEndian(bytes, at + 5, 2)};
        // 0xDC (DNL) overrides the height.
        if ((isFrame && !isModest(size)) || marker == 0xDC) return false;
        hasFrame |= isFrame;
        at += 2 + bigEndian(bytes, at + 2, 2);
        if (marker == 0xDA) at = afterJpegScan(bytes, at);
    }
    return hasFrame;
}

// Chunks that take a decoder no more memory than they have bytes.
constexpr std::array<std::string_view, 12> kPlainChunks = {
    "PLTE", "IEND", "tRNS", "gAMA", "cHRM", "sRGB", "sBIT", "bKGD", "hIST", "pHYs", "tIME", "tEXt"};
// Chunks of deflated data, which inflates to about a thousand times its size at most.
constexpr std::array<std::string_view, 3> kPackedChunks = {"iCCP", "zTXt", "iTXt"};
constexpr std::uint64_t kMaxPackedBytes = std::uint64_t{16} << 10;

// A pixel has at most 8 bytes, and each row one more. More deflated data than that could only be
// there to inflate.
bool isModestPng(std::string_view bytes) {
    const ImageSize size{bigEndian(bytes, 16, 4), bigEndian(bytes, 20, 4)};
    if (!isModest(size) || bytes.substr(12, 4) != "IHDR") return false;
    const std::uint64_t maxPixelBytes =
        size.height * (std::uint64_t{8} * size.width + 1) + kMaxPackedBytes / 16;
    std::uint64_t pixelBytes = 0, packedBytes = 0;
    for (std::size_t at = 33; at < bytes.size();) {
        const std::uint64_t length = bigEndian(bytes, at, 4);
        const std::string_view type = bytes.substr(std::min(at + 4, bytes.size()), 4);
        if (type == "IDAT") {
            pixelBytes += length;
        } else if (std::ranges::find(kPackedChunks, type) != kPackedChunks.end()) {
            packedBytes += length;
        } else if (std::ranges::find(kPlainChunks, type) == kPlainChunks.end()) {
            return false;
        }
        if (pixelBytes > maxPixelBytes || packedBytes > kMaxPackedBytes) return false;
        if (type == "IEND") break;
        at += 12 + length;
    }
    return true;
}

}  // namespace

bool isSafeImage(std::string_view bytes) {
    const opc::ImageType* const kind = opc::imageTypeOf(bytes);
    if (kind == nullptr || bytes.size() > kMaxPictureBytes) return false;
    if (kind->format == "png") return isModestPng(bytes);
    if (kind->format == "gif") return isModestGif(bytes);
    return kind->format == "jpg" && isModestJpeg(bytes);
}

}  // namespace qzapp
