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

// Text that its encoding does not allow. `index()` is where the ill-formed sequence starts, in code
// units of the source text: 16-bit units for UTF-16, bytes for UTF-8.
class PLATFORM_API ConversionError : public std::runtime_error {
public:
    ConversionError(const char* encoding, std::size_t index);
    std::size_t index() const noexcept { return index_; }

private:
    std::size_t index_;
};

// Throws ConversionError on an unpaired surrogate.
PLATFORM_API std::string ustring_to_utf8(ustring_view text);

// Never fails on content: each maximal ill-formed subpart becomes U+FFFD. For reading what may hold
// stray bytes; what gets written goes through utf8_to_ustring_strict.
PLATFORM_API ustring utf8_to_ustring(std::string_view bytes);

// Throws ConversionError at the first ill-formed sequence.
PLATFORM_API ustring utf8_to_ustring_strict(std::string_view bytes);

// `text` for a message: as ustring_to_utf8, but unpaired surrogates become U+FFFD.
PLATFORM_API std::string to_display(ustring_view text);

// Unicode lower-casing, independent of the locale. Unpaired surrogates stay as they are.
PLATFORM_API ustring to_lower(ustring_view text);

// Index of the first unpaired surrogate, or npos when `text` is valid UTF-16.
PLATFORM_API std::size_t find_unpaired_surrogate(ustring_view text);

}  // namespace fl::i18n
