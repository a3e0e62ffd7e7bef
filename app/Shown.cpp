#include "app/Shown.hpp"

#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>

namespace qzapp {

std::string visible(std::string_view text) {
    return foundation::printable(text);
}

std::string visible(foundation::ustring_view text) {
    return visible(fl::i18n::to_display(text));
}

std::string visibleText(std::string_view text) {
    return foundation::printableText(text);
}

std::string byteCount(std::uint64_t bytes) {
    std::string digits = std::to_string(bytes);
    for (std::size_t at = digits.size(); at > 3; at -= 3)
        digits.insert(at - 3, 1, ',');
    return digits + (bytes == 1 ? " byte" : " bytes");
}

}  // namespace qzapp
