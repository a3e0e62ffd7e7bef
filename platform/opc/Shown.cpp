#include "platform/opc/Shown.hpp"

#include <fl/i18n.hpp>

#include "platform/opc/zip/ZipError.hpp"

namespace opc {

namespace {

bool continuesCharacter(char byte) {
    return (byte & 0xC0) == 0x80;
}

}  // namespace

std::string shown(std::string_view utf8, std::size_t limit) {
    if (utf8.size() <= limit) return zip::printable(utf8);
    std::size_t end = limit;
    while (end > 0 && continuesCharacter(utf8[end]))
        --end;
    return zip::printable(utf8.substr(0, end)) + "...";
}

std::string shown(foundation::ustring_view text) {
    // Enough code units for what is shown; the rest may be megabytes.
    return shown(std::string_view(fl::i18n::to_display(text.substr(0, kMaxShownValue + 1))));
}

std::string shown(const fl::filesystem::path& file) {
    return zip::displayName(file);
}

}  // namespace opc
