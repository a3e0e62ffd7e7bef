#include "app/ImageKind.hpp"

#include <algorithm>
#include <array>

namespace qzapp {
namespace {

constexpr std::array kKinds = {
    ImageKind{"png", "image/png", "\x89PNG\r\n\x1A\n", "", 0, "IEND\xAE\x42\x60\x82"},
    ImageKind{"jpg", "image/jpeg", "\xFF\xD8\xFF", "", 0, "\xFF\xD9"},
    ImageKind{"gif", "image/gif", "GIF87a", "", 0, ";"},
    ImageKind{"gif", "image/gif", "GIF89a", "", 0, ";"},
    ImageKind{"webp", "image/webp", "RIFF", "WEBP", 8, ""},
};

bool isOf(const ImageKind& kind, std::string_view bytes) {
    return bytes.starts_with(kind.signature) && bytes.size() >= kind.markAt &&
           bytes.substr(kind.markAt).starts_with(kind.mark);
}

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

// Of the frame header, which other segments may precede.
ImageSize sizeOfJpeg(std::string_view bytes) {
    for (std::size_t at = 2; byteAt(bytes, at) == 0xFF;) {
        const std::uint32_t marker = byteAt(bytes, at + 1);
        const bool isFill = marker == 0xFF;
        const bool isFrame =
            marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        if (isFrame) return {bigEndian(bytes, at + 7, 2), bigEndian(bytes, at + 5, 2)};
        at += isFill ? 1 : 2 + bigEndian(bytes, at + 2, 2);
    }
    return {};
}

// Nothing, as 0, where it cannot be found.
ImageSize sizeOf(const ImageKind& kind, std::string_view bytes) {
    if (kind.format == "png") return {bigEndian(bytes, 16, 4), bigEndian(bytes, 20, 4)};
    if (kind.format == "gif") return {littleEndian16(bytes, 6), littleEndian16(bytes, 8)};
    return kind.format == "jpg" ? sizeOfJpeg(bytes) : ImageSize();
}

bool isModest(std::uint32_t side) {
    return side > 0 && side <= kMaxPictureSide;
}

}  // namespace

bool isThumbnail(std::string_view bytes) {
    const ImageKind* const kind = imageKindOf(bytes);
    if (kind == nullptr || bytes.size() > kMaxPictureBytes) return false;
    const ImageSize size = sizeOf(*kind, bytes);
    return isModest(size.width) && isModest(size.height);
}

const ImageKind* imageKindOf(std::string_view bytes) {
    const auto* const found =
        std::ranges::find_if(kKinds, [&](const ImageKind& kind) { return isOf(kind, bytes); });
    return found == kKinds.end() ? nullptr : found;
}

}  // namespace qzapp
