#include <foundation/Shown.hpp>

#include <fl/filesystem.hpp>
#include <fl/i18n.hpp>

namespace foundation {

namespace {

bool continuesCharacter(char byte) {
    return (byte & 0xC0) == 0x80;
}

}  // namespace

std::string printable(std::string_view utf8) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char c : utf8) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F) {
            text += c;
        } else {
            text.append("\\x").append({kDigits[byte >> 4], kDigits[byte & 15]});
        }
    }
    return text;
}

std::string shown(std::string_view utf8, std::size_t limit) {
    if (utf8.size() <= limit) return printable(utf8);
    std::size_t end = limit;
    while (end > 0 && continuesCharacter(utf8[end]))
        --end;
    return printable(utf8.substr(0, end)) + "...";
}

std::string shown(ustring_view text) {
    // Enough code units for what is shown; the rest may be megabytes.
    return shown(std::string_view(fl::i18n::to_display(text.substr(0, kMaxShownValue + 1))));
}

std::string shown(const fl::filesystem::path& file) {
    return printable(fl::i18n::to_display(file.native()));
}

}  // namespace foundation
