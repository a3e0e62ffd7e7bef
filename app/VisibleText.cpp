#include "app/VisibleText.hpp"

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
    return foundation::shownCount(bytes) + (bytes == 1 ? " byte" : " bytes");
}

}  // namespace qzapp
