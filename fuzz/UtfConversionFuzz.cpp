// Conversion between UTF-8 and UTF-16 against one that decodes a character at a time.

#include <fl/i18n.hpp>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "fuzz/Fuzzing.hpp"

namespace {

using fuzz::require;

constexpr char32_t kReplacement = 0xFFFD;

struct Character {
    char32_t point = kReplacement;
    std::size_t length = 1;  // in the text that it was decoded from
    bool isWellFormed = false;
};

// The well-formed sequences by their first byte: how many bytes follow, and the bounds of the second,
// which keep out overlong forms, surrogates and what lies beyond U+10FFFF.
struct Lead {
    unsigned char first, last;
    std::size_t trail;
    unsigned char low, high;
};
constexpr Lead kLeads[] = {
    {0x00, 0x7F, 0, 0, 0},       {0xC2, 0xDF, 1, 0x80, 0xBF}, {0xE0, 0xE0, 2, 0xA0, 0xBF},
    {0xE1, 0xEC, 2, 0x80, 0xBF}, {0xED, 0xED, 2, 0x80, 0x9F}, {0xEE, 0xEF, 2, 0x80, 0xBF},
    {0xF0, 0xF0, 3, 0x90, 0xBF}, {0xF1, 0xF3, 3, 0x80, 0xBF}, {0xF4, 0xF4, 3, 0x80, 0x8F},
};

// The character at the front, or the maximal ill-formed subpart.
Character decode(std::string_view bytes) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const auto* const lead =
        std::find_if(std::begin(kLeads), std::end(kLeads),
                     [&](const Lead& row) { return row.first <= at(0) && at(0) <= row.last; });
    if (lead == std::end(kLeads)) return {};
    char32_t point = lead->trail == 0 ? at(0) : at(0) & (0x3FU >> lead->trail);
    for (std::size_t i = 1; i <= lead->trail; ++i) {
        const unsigned char low = i == 1 ? lead->low : 0x80;
        const unsigned char high = i == 1 ? lead->high : 0xBF;
        if (i == bytes.size() || at(i) < low || at(i) > high) return {kReplacement, i, false};
        point = point << 6 | (at(i) & 0x3F);
    }
    return {point, lead->trail + 1, true};
}

bool isSurrogate(char16_t unit, char16_t first) {
    return unit >= first && unit < first + 0x400;
}

Character decode(std::u16string_view units) {
    const bool isLead = isSurrogate(units[0], 0xD800);
    if (!isLead && !isSurrogate(units[0], 0xDC00)) return {units[0], 1, true};
    if (!isLead || units.size() < 2 || !isSurrogate(units[1], 0xDC00)) return {};
    return {0x10000 + (char32_t(units[0] - 0xD800) << 10) + (units[1] - 0xDC00), 2, true};
}

void append(std::u16string& text, char32_t point) {
    if (point < 0x10000) {
        text += char16_t(point);
    } else {
        text += char16_t(0xD800 + ((point - 0x10000) >> 10));
        text += char16_t(0xDC00 + ((point - 0x10000) & 0x3FF));
    }
}

void append(std::string& text, char32_t point) {
    const int trail = point < 0x80 ? 0 : point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    const unsigned marks[] = {0, 0xC0, 0xE0, 0xF0};
    text += char(marks[trail] | point >> (6 * trail));
    for (int i = trail - 1; i >= 0; --i)
        text += char(0x80 | ((point >> (6 * i)) & 0x3F));
}

template <class Target>
struct Converted {
    Target text;
    std::optional<std::size_t> illFormedAt;  // the first
};

template <class Target, class Source>
Converted<Target> convert(Source source) {
    Converted<Target> converted;
    for (std::size_t i = 0; i < source.size();) {
        const Character character = decode(source.substr(i));
        if (!character.isWellFormed && !converted.illFormedAt) converted.illFormedAt = i;
        append(converted.text, character.point);
        i += character.length;
    }
    return converted;
}

// What a conversion that refuses ill-formed text makes of it.
template <class Target, class Source>
Converted<Target> strictly(Target (*function)(Source), Source source) {
    try {
        return {function(source), {}};
    } catch (const fl::i18n::ConversionError& error) {
        return {{}, error.index()};
    }
}

void checkFromUtf8(std::string_view bytes) {
    const auto expected = convert<std::u16string>(bytes);
    require(fl::i18n::utf8_to_ustring(bytes) == expected.text, "UTF-8 is decoded");
    const auto strict = strictly(fl::i18n::utf8_to_ustring_strict, bytes);
    require(strict.illFormedAt == expected.illFormedAt, "ill-formed UTF-8 is refused, and where");
    if (expected.illFormedAt) return;
    require(strict.text == expected.text, "UTF-8 is decoded by the strict form");
    require(fl::i18n::ustring_to_utf8(strict.text) == bytes, "UTF-8 is the same there and back");
}

void checkFromUtf16(std::u16string_view units) {
    const auto expected = convert<std::string>(units);
    require(fl::i18n::to_display(units) == expected.text, "UTF-16 is shown");
    const auto found = fl::i18n::find_unpaired_surrogate(units);
    require(found == expected.illFormedAt.value_or(std::u16string::npos), "surrogates are found");
    const auto strict = strictly(fl::i18n::ustring_to_utf8, units);
    require(strict.illFormedAt == expected.illFormedAt, "ill-formed UTF-16 is refused, and where");
    if (expected.illFormedAt) return;
    require(strict.text == expected.text, "UTF-16 is encoded");
    require(fl::i18n::utf8_to_ustring_strict(strict.text) == units,
            "UTF-16 is the same there and back");
}

// Where letters have a form in the other case, and how long that is, is the Unicode tables'; but none
// may change twice, and what is not a letter stays.
void checkLower(std::u16string_view units) {
    const auto lower = fl::i18n::to_lower(units);
    require(fl::i18n::to_lower(lower) == lower, "lower case stays as it is");
    const auto isUnpaired = [](std::u16string_view text) {
        return fl::i18n::find_unpaired_surrogate(text) != std::u16string::npos;
    };
    require(isUnpaired(lower) == isUnpaired(units), "lower-casing keeps surrogates");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    // Text is converted in blocks and pieces: what is odd has to stand anywhere in them.
    static constexpr std::u16string_view kFillers[] = {u"a", u"\u00E9", u"\u20AC", u"\U0001F600"};
    const auto filler = input.oneOf(kFillers);
    std::u16string front;
    for (auto count = input.number(2) % 2100; count > 0; --count)
        front += filler;
    const std::string bytes(input.rest());
    checkFromUtf8(fl::i18n::ustring_to_utf8(front) + bytes);

    std::u16string units = front;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        units += char16_t(static_cast<unsigned char>(bytes[i]) << 8 |
                          static_cast<unsigned char>(bytes[i + 1]));
    }
    checkFromUtf16(units);
    checkLower(units);
    return 0;
}
