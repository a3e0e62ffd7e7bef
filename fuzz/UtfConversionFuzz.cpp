// Conversion between UTF-8 and UTF-16: there and back gives the same text, the error names the
// first wrong place, and the position of a text in the pieces that are converted at once makes no
// difference.

#include <fl/i18n.hpp>

#include <cstdint>
#include <optional>
#include <string>

#include "fuzz/Fuzzing.hpp"

namespace {

using namespace fl::i18n;
using fuzz::require;

constexpr char16_t kReplacement = 0xFFFD;

// The place at which a conversion refuses ill-formed text; nullopt if it does not.
template <class Conversion, class Text>
std::optional<std::size_t> refusedAt(Conversion convert, Text text) {
    try {
        convert(text);
        return std::nullopt;
    } catch (const ConversionError& error) {
        return error.index();
    }
}

void checkFromUtf8(const std::u16string& front, std::string_view rest) {
    const std::string bytes = ustring_to_utf8(front) + std::string(rest);
    const ustring units = utf8_to_ustring(bytes);
    require(units == front + utf8_to_ustring(rest), "the place of a text makes no difference");
    const auto illFormedAt = refusedAt(utf8_to_ustring_strict, bytes);
    require(illFormedAt.has_value() == (ustring_to_utf8(units) != bytes),
            "UTF-8 is refused when it is not the same there and back");
    if (!illFormedAt) return require(utf8_to_ustring_strict(bytes) == units, "both forms agree");
    const ustring before = utf8_to_ustring_strict(bytes.substr(0, *illFormedAt));
    require(units.starts_with(before + kReplacement), "all before the place is well-formed");
    require(refusedAt(utf8_to_ustring_strict, bytes.substr(*illFormedAt)) == 0, "what follows not");
}

bool isSurrogate(char16_t unit, char16_t first) {
    return unit >= first && unit < first + 0x400;
}

std::size_t firstUnpaired(std::u16string_view units, std::size_t from) {
    for (std::size_t i = from; i < units.size(); ++i) {
        const bool isLead = isSurrogate(units[i], 0xD800);
        if (isLead && i + 1 < units.size() && isSurrogate(units[i + 1], 0xDC00)) {
            ++i;
        } else if (isLead || isSurrogate(units[i], 0xDC00)) {
            return i;
        }
    }
    return units.npos;
}

void checkFromUtf16(const std::u16string& units) {
    const auto unpairedAt = firstUnpaired(units, 0);
    require(find_unpaired_surrogate(units) == unpairedAt, "the first unpaired surrogate is found");
    require(refusedAt(ustring_to_utf8, units).value_or(units.npos) == unpairedAt,
            "and refused at its place");
    std::u16string mended = units;
    for (auto at = unpairedAt; at != units.npos; at = firstUnpaired(mended, at))
        mended[at] = kReplacement;
    const std::string bytes = ustring_to_utf8(mended);
    require(to_display(units) == bytes, "all are shown as the replacement");
    require(utf8_to_ustring_strict(bytes) == mended, "UTF-16 is the same there and back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    // Text is converted in pieces, so something odd has to stand anywhere in them.
    static constexpr std::u16string_view kFillers[] = {u"a", u"\u00E9", u"\u20AC", u"\U0001F600"};
    const auto filler = input.oneOf(kFillers);
    std::u16string front;
    for (auto count = input.number(2) % 2100; count > 0; --count)
        front += filler;
    const std::string bytes(input.rest());
    checkFromUtf8(front, bytes);

    std::u16string units = front;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        units += char16_t(static_cast<unsigned char>(bytes[i]) << 8 |
                          static_cast<unsigned char>(bytes[i + 1]));
    }
    checkFromUtf16(units);
    return 0;
}
