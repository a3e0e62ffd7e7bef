// Scaled pictures of screenshots: one fits into its box, has the size that it says, can be decoded,
// and is the same each time.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <optional>
#include <string_view>

#include "fuzz/Fuzzing.hpp"
#include "tools/qzapp/pictures/Decoders.hpp"
#include "tools/qzapp/pictures/Picture.hpp"
#include "tools/qzapp/pictures/Raster.hpp"

namespace {

using namespace qzapp::pictures;
using fuzz::require;

constexpr Size kSmallBox{48, 36};

// Whether a PNG or GIF claims to be so large that it would take most of the time of a run.
bool claimsMuch(std::string_view image) {
    const auto number = [&](std::size_t first, std::size_t last) {
        std::uint32_t value = 0;
        const std::ptrdiff_t step = first <= last ? 1 : -1;
        for (auto at = static_cast<std::ptrdiff_t>(first);; at += step) {
            const auto index = static_cast<std::size_t>(at);
            value =
                value << 8 | (index < image.size() ? static_cast<unsigned char>(image[index]) : 0U);
            if (index == last) return value;
        }
    };
    constexpr std::uint64_t kMuch = 1'000'000;
    if (image.starts_with("\x89PNG")) return std::uint64_t{number(16, 19)} * number(20, 23) > kMuch;
    if (image.starts_with("GIF8")) return std::uint64_t{number(7, 6)} * number(9, 8) > kMuch;
    return false;
}

std::optional<ScaledPicture> scaled(std::string_view image) {
    return fuzz::attempt<Refused, std::bad_alloc>([&] { return scaleHere(image, kSmallBox); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view image(reinterpret_cast<const char*>(data), size);
    if (claimsMuch(image)) return 0;
    const auto picture = scaled(image);
    const auto again = scaled(image);
    require(picture.has_value() == again.has_value(), "the same image is taken or refused");
    if (!picture) return 0;
    require(picture->bytes == again->bytes, "the same image gives the same picture");
    require(picture->size == fitted(picture->original, kSmallBox), "the picture fits into the box");
    require(decode(picture->bytes, kSmallBox).raster.size == picture->size,
            "the picture has the size that it says");
    return 0;
}
