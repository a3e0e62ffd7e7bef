#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace fl::i18n {

using foundation::ustring;
using foundation::ustring_view;

// Thrown for text that is ill-formed in its encoding. index() is where the first ill-formed
// sequence starts, in code units of the source text: 16-bit units for UTF-16, bytes for UTF-8.
class PLATFORM_API ConversionError : public std::runtime_error {
public:
    ConversionError(const char* encoding, std::size_t index);
    std::size_t index() const noexcept { return index_; }

private:
    std::size_t index_;
};

// The conversions take time linear in the length of the text. A NUL is a character like any other,
// and a byte-order mark is kept.

// Throws ConversionError on an unpaired surrogate.
PLATFORM_API std::string ustring_to_utf8(ustring_view text);

// Never fails on content: each maximal ill-formed subpart becomes U+FFFD. Use it to read text that
// may hold stray bytes. Text that will be written goes through utf8_to_ustring_strict(), because a
// replaced byte is lost.
PLATFORM_API ustring utf8_to_ustring(std::string_view bytes);

// Throws ConversionError at the first ill-formed sequence.
PLATFORM_API ustring utf8_to_ustring_strict(std::string_view bytes);

// Like ustring_to_utf8(), but never throws on content: unpaired surrogates become U+FFFD. For texts
// that only people read, such as messages.
PLATFORM_API std::string to_display(ustring_view text);

// Unicode lower-casing, independent of the locale. The result may be longer than `text`. Unpaired
// surrogates stay as they are.
PLATFORM_API ustring to_lower(ustring_view text);

// Canonical composition (NFC), for comparing short texts such as names. Unpaired surrogates stay as
// they are.
PLATFORM_API ustring to_composed(ustring_view text);
// Canonical decomposition (NFD): letters without accents, each followed by its accents.
PLATFORM_API ustring to_decomposed(ustring_view text);

// Index of the first unpaired surrogate, or npos if `text` is valid UTF-16.
PLATFORM_API std::size_t find_unpaired_surrogate(ustring_view text);

}  // namespace fl::i18n
