#include <foundation/Shown.hpp>

#include <fl/filesystem.hpp>
#include <fl/i18n.hpp>

#include <unicode/uchar.h>
#include <unicode/utf8.h>
#include <unicode/utypes.h>

#include <algorithm>

namespace foundation {

namespace {

// The characters that are escaped, because a terminal acts on them or because they end a line:
// control characters, direction marks and overrides, line and paragraph separators, the byte-order
// mark.
struct Range {
    char32_t first, last;
};
constexpr Range kNotPrinted[] = {
    {0x0000, 0x001F}, {0x007F, 0x009F}, {0x061C, 0x061C}, {0x200E, 0x200F},
    {0x2028, 0x202E}, {0x2066, 0x2069}, {0xFEFF, 0xFEFF},
};
// appendEscape() writes four digits.
static_assert(std::ranges::all_of(kNotPrinted, [](Range range) { return range.last <= 0xFFFF; }));

bool isPrinted(char32_t character) {
    return std::ranges::none_of(kNotPrinted, [=](Range range) {
        return range.first <= character && character <= range.last;
    });
}

bool continuesCharacter(char byte) {
    return (byte & 0xC0) == 0x80;
}

// "\u001B"
void appendEscape(std::string& text, char32_t character) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    text += "\\u";
    for (const int shift : {12, 8, 4, 0})
        text += kDigits[character >> shift & 15];
}

// Returns the character at `at` and advances `at` past it; negative if the bytes are not UTF-8.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"  // inside ICU's macro
UChar32 nextCharacter(std::string_view utf8, std::size_t& at) {
    UChar32 character = 0;
    U8_NEXT(utf8.data(), at, utf8.size(), character);
    return character;
}
#pragma GCC diagnostic pop

std::size_t displayWidthOf(UChar32 character) {
    constexpr std::uint32_t kWithoutWidth =
        U_GC_MN_MASK | U_GC_ME_MASK | U_GC_CF_MASK | U_GC_CC_MASK;
    if (character < 0x80) return 1;  // most are, and ASCII's control characters are not shown
    if ((U_GET_GC_MASK(character) & kWithoutWidth) != 0) return 0;
    const int width = u_getIntPropertyValue(character, UCHAR_EAST_ASIAN_WIDTH);
    return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

enum class Layout { Escaped, Kept };

std::string escaped(std::string_view utf8, Layout layout) {
    std::string text;
    text.reserve(utf8.size());
    for (std::size_t at = 0; at < utf8.size();) {
        const std::size_t start = at;
        const UChar32 character = nextCharacter(utf8, at);
        const bool isLayout = character == '\n' || character == '\t';
        if (character < 0) {
            text += "\xEF\xBF\xBD";  // U+FFFD
        } else if (isPrinted(static_cast<char32_t>(character)) ||
                   (isLayout && layout == Layout::Kept)) {
            text += utf8.substr(start, at - start);
        } else {
            appendEscape(text, static_cast<char32_t>(character));
        }
    }
    return text;
}

}  // namespace

std::string printable(std::string_view utf8) {
    return escaped(utf8, Layout::Escaped);
}

std::string printableText(std::string_view utf8) {
    return escaped(utf8, Layout::Kept);
}

std::string shown(std::string_view utf8, std::size_t limit) {
    if (utf8.size() <= limit) return printable(utf8);
    std::size_t end = limit;
    while (end > 0 && continuesCharacter(utf8[end]))
        --end;
    return printable(utf8.substr(0, end)) + "...";
}

std::string shown(ustring_view text) {
    // Each code unit becomes at least one byte, so this many suffice. All of `text` may be
    // megabytes.
    return shown(std::string_view(fl::i18n::to_display(text.substr(0, kMaxShownValue + 1))));
}

std::string shown(const fl::filesystem::path& file) {
    return printable(fl::i18n::to_display(file.native()));
}

std::size_t displayWidth(std::string_view utf8) {
    std::size_t width = 0;
    for (std::size_t at = 0; at < utf8.size();)
        width += displayWidthOf(nextCharacter(utf8, at));
    return width;
}

std::string shownCount(std::uint64_t count) {
    std::string digits = std::to_string(count);
    for (std::size_t at = digits.size(); at > 3; at -= 3)
        digits.insert(at - 3, 1, ',');
    return digits;
}

std::string shownMebibytes(std::uint64_t bytes) {
    return shownCount(bytes >> 20) + " MiB";
}

}  // namespace foundation
