#include "tools/qzapp/pictures/Picture.hpp"

#include <fmt/format.h>
#include <foundation/Shown.hpp>

#include <algorithm>

namespace qzapp::pictures {

std::string textOf(Refusal refusal) {
    switch (refusal) {
        case Refusal::NoImage:
            return "it is not a PNG, JPEG or GIF image";
        case Refusal::TooManyBytes:
            return "it has more than " + foundation::shownMebibytes(kMaxBytes);
        case Refusal::TooManyPixels:
            return fmt::format("it has more than {} million pixels, or more than {} on a side",
                               kMaxPixels / 1'000'000, kMaxSide);
        case Refusal::Damaged:
            return "it is damaged";
        case Refusal::NoMemory:
            return "decoding it takes too much memory";
        case Refusal::Killed:
            return "decoding it takes too long, or ends the decoder";
        case Refusal::NotNow:
            return "no process could be started that decodes it";
    }
    return {};
}

Size fitted(Size size, Size box) {
    if (size.width <= box.width && size.height <= box.height) return size;
    const auto scaled = [](std::uint64_t side, std::uint64_t by, std::uint64_t of) {
        return static_cast<std::uint32_t>(std::max<std::uint64_t>(1, (side * by + of / 2) / of));
    };
    // Compares the proportions without fractions.
    if (std::uint64_t{size.width} * box.height >= std::uint64_t{size.height} * box.width)
        return {box.width, scaled(size.height, box.width, size.width)};
    return {scaled(size.width, box.height, size.height), box.height};
}

}  // namespace qzapp::pictures
