#include "tools/qzapp/ImageKind.hpp"

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

}  // namespace

const ImageKind* imageKindOf(std::string_view bytes) {
    const auto* const found =
        std::ranges::find_if(kKinds, [&](const ImageKind& kind) { return isOf(kind, bytes); });
    return found == kKinds.end() ? nullptr : found;
}

}  // namespace qzapp
