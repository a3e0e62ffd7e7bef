#include <fl/i18n.hpp>

#include <unicode/unorm2.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>
#include <unicode/utypes.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <string>

namespace fl::i18n {

namespace {

enum class IllFormed { Replace, Throw };

constexpr UChar32 kReplacement = 0xFFFD;

// Text is converted in pieces through a buffer on the stack, because ICU counts in 32 bits and text
// may be longer, and because appending pieces avoids zeroing the whole result first.
constexpr std::size_t kPiece = 2048;
constexpr std::size_t kMaxUtf8PerUnit = 3;

// The length of the first piece, which does not end within a well-formed sequence, nor within an
// ill-formed one that becomes a single U+FFFD.
std::size_t pieceLength(std::string_view text) {
    if (text.size() <= kPiece) return text.size();
    std::int32_t length = kPiece;
    U8_TRUNCATE_IF_INCOMPLETE(text.data(), 0, length);
    return static_cast<std::size_t>(length);
}

std::size_t pieceLength(ustring_view text) {
    if (text.size() <= kPiece) return text.size();
    return U16_IS_LEAD(text[kPiece - 1]) ? kPiece - 1 : kPiece;
}

struct Converted {
    std::size_t length;
    bool substituted;
};

template <class Source>
bool isAscii(Source piece) {
    int bits = 0;
    for (const auto unit : piece)
        bits |= unit;
    return (bits & ~0x7F) == 0;
}

// Like convertPiece(), for ASCII.
template <class Source, class Unit>
Converted copyPiece(Source source, Unit* target) {
    std::copy(source.begin(), source.end(), target);
    return {source.size(), false};
}

// Converts `source`, at most kPiece long, to `target`, which has room for the longest result.
Converted convertPiece(std::string_view source, char16_t* target) {
    std::int32_t length = 0;
    std::int32_t substitutions = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8WithSub(target, kPiece, &length, source.data(),
                         static_cast<std::int32_t>(source.size()), kReplacement, &substitutions,
                         &status);
    return {static_cast<std::size_t>(length), substitutions != 0};
}

Converted convertPiece(ustring_view source, char* target) {
    std::int32_t length = 0;
    std::int32_t substitutions = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strToUTF8WithSub(target, kPiece * kMaxUtf8PerUnit, &length, source.data(),
                       static_cast<std::int32_t>(source.size()), kReplacement, &substitutions,
                       &status);
    return {static_cast<std::size_t>(length), substitutions != 0};
}

// The index of the first ill-formed sequence of `piece`, which has one.
std::size_t findIllFormed(std::string_view piece) {
    const auto size = static_cast<std::int32_t>(piece.size());
    for (std::int32_t next = 0; next < size;) {
        const std::int32_t start = next;
        const auto lead = static_cast<std::uint8_t>(piece[static_cast<std::size_t>(start)]);
        // This steps over a character, or over an ill-formed subpart, which is shorter than its
        // lead byte announces.
        U8_FWD_1(piece.data(), next, size);
        const bool wellFormed =
            U8_IS_SINGLE(lead) ||
            (U8_IS_LEAD(lead) && next - start == 1 + U8_COUNT_TRAIL_BYTES(lead));
        if (!wellFormed) return static_cast<std::size_t>(start);
    }
    return piece.size();
}

std::size_t findIllFormed(ustring_view piece) {
    return find_unpaired_surrogate(piece);
}

[[noreturn]] void throwIllFormed(std::string_view piece, std::size_t pieceStart) {
    throw ConversionError("UTF-8", pieceStart + findIllFormed(piece));
}

[[noreturn]] void throwIllFormed(ustring_view piece, std::size_t pieceStart) {
    throw ConversionError("UTF-16", pieceStart + findIllFormed(piece));
}

template <class Target, class Source>
Target convert(Source source, IllFormed illFormed) {
    typename Target::value_type buffer[kPiece * kMaxUtf8PerUnit];
    Target target;
    target.reserve(source.size());
    for (std::size_t next = 0; next < source.size();) {
        const Source piece = source.substr(next, pieceLength(source.substr(next)));
        // Most pieces are ASCII, which is copied several times as fast as ICU converts it.
        const auto converted =
            isAscii(piece) ? copyPiece(piece, buffer) : convertPiece(piece, buffer);
        if (converted.substituted && illFormed == IllFormed::Throw) throwIllFormed(piece, next);
        target.append(buffer, converted.length);
        next += piece.size();
    }
    return target;
}

std::string describe(const char* encoding, std::size_t index) {
    return "text is not valid " + std::string(encoding) + ": ill-formed at index " +
           std::to_string(index);
}

// Appends `piece`, whose length fits into 32 bits, in lower case.
void appendLower(ustring_view piece, ustring& lower) {
    const auto size = static_cast<std::int32_t>(piece.size());
    const std::size_t start = lower.size();
    std::size_t room = piece.size();
    for (;;) {
        lower.resize(start + room);
        UErrorCode status = U_ZERO_ERROR;
        const std::int32_t length = u_strToLower(
            lower.data() + start, static_cast<std::int32_t>(room), piece.data(), size, "", &status);
        const bool fits = static_cast<std::size_t>(length) <= room;
        room = static_cast<std::size_t>(length);
        if (fits) break;
    }
    lower.resize(start + room);
}

ustring normalized(ustring_view text, const UNormalizer2* form) {
    UErrorCode status = U_ZERO_ERROR;
    ustring result(text.size(), u'\0');
    for (int attempt = 0; attempt < 2; ++attempt) {
        status = U_ZERO_ERROR;
        const std::int32_t size =
            unorm2_normalize(form, text.data(), static_cast<std::int32_t>(text.size()),
                             result.data(), static_cast<std::int32_t>(result.size()), &status);
        result.resize(static_cast<std::size_t>(size));
        if (status != U_BUFFER_OVERFLOW_ERROR) break;
    }
    if (U_FAILURE(status)) throw std::runtime_error("text cannot be normalized");
    return result;
}

const UNormalizer2* decomposition() {
    UErrorCode status = U_ZERO_ERROR;
    return unorm2_getNFDInstance(&status);
}

const UNormalizer2* composition() {
    UErrorCode status = U_ZERO_ERROR;
    return unorm2_getNFCInstance(&status);
}

void appendDecomposed(UChar32 character, std::u32string& to) {
    constexpr std::size_t kMostUnits = 18;  // that a character decomposes into
    std::array<char16_t, kMostUnits> units{};
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t size = unorm2_getDecomposition(decomposition(), character, units.data(),
                                                      std::ssize(units), &status);
    if (size < 0) to += static_cast<char32_t>(character);
    for (std::int32_t at = 0; at < size;) {
        UChar32 part = 0;
        U16_NEXT(units.data(), at, size, part);
        to += static_cast<char32_t>(part);
    }
}

// The text decomposed, if it is so long that its marks may need much time to be put in order. ICU
// inserts them one by one, which takes time with the square of the length of a run of marks.
ustring withMarksInOrder(ustring_view text) {
    constexpr std::size_t kShort = 500;
    if (text.size() <= kShort) return ustring(text);
    std::u32string characters;
    for (std::size_t at = 0; at < text.size();) {
        UChar32 character = 0;
        U16_NEXT(text.data(), at, text.size(), character);
        appendDecomposed(character, characters);
    }
    const auto order = [](char32_t c) {
        return unorm2_getCombiningClass(decomposition(), static_cast<UChar32>(c));
    };
    const auto isMark = [&](char32_t c) { return order(c) != 0; };
    for (auto begin = characters.begin(); begin != characters.end();) {
        begin = std::find_if(begin, characters.end(), isMark);
        const auto end = std::find_if_not(begin, characters.end(), isMark);
        std::ranges::stable_sort(begin, end, {}, order);
        begin = end;
    }
    ustring units;
    for (const char32_t c : characters) {
        if (c > 0xFFFF) units += static_cast<char16_t>(U16_LEAD(c));
        units += static_cast<char16_t>(c > 0xFFFF ? U16_TRAIL(c) : c);
    }
    return units;
}

}  // namespace

ConversionError::ConversionError(const char* encoding, std::size_t index)
    : std::runtime_error(describe(encoding, index)), index_(index) {}

std::string ustring_to_utf8(ustring_view text) {
    return convert<std::string>(text, IllFormed::Throw);
}

ustring utf8_to_ustring(std::string_view bytes) {
    return convert<ustring>(bytes, IllFormed::Replace);
}

ustring utf8_to_ustring_strict(std::string_view bytes) {
    return convert<ustring>(bytes, IllFormed::Throw);
}

std::string to_display(ustring_view text) {
    return convert<std::string>(text, IllFormed::Replace);
}

ustring to_lower(ustring_view text) {
    // ICU counts in 32 bits, so longer text is lower-cased in pieces. ICU then cannot see what
    // follows a sigma at the end of a piece, which can only matter in texts of more than 500
    // million units.
    constexpr std::size_t kLowerPiece = std::size_t{1} << 29;
    ustring lower;
    while (!text.empty()) {
        std::size_t length = std::min(text.size(), kLowerPiece);
        if (length < text.size() && U16_IS_LEAD(text[length - 1])) --length;
        appendLower(text.substr(0, length), lower);
        text.remove_prefix(length);
    }
    return lower;
}

ustring to_composed(ustring_view text) {
    return normalized(withMarksInOrder(text), composition());
}

ustring to_decomposed(ustring_view text) {
    return normalized(withMarksInOrder(text), decomposition());
}

std::size_t find_unpaired_surrogate(ustring_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!U16_IS_SURROGATE(text[i])) continue;
        const bool paired =
            U16_IS_LEAD(text[i]) && i + 1 < text.size() && U16_IS_TRAIL(text[i + 1]);
        if (!paired) return i;
        ++i;
    }
    return ustring_view::npos;
}

}  // namespace fl::i18n
