#pragma once

#include <foundation/Export.hpp>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace foundation {

// Text as the host passes it: UTF-16 code units, not necessarily valid UTF-16.
using ustring = std::u16string;
using ustring_view = std::u16string_view;

// Thrown by asciiLower() for a code unit that is not ASCII. index() is the unit's place in the
// text.
class PLATFORM_API InvalidCharacterError : public std::invalid_argument {
public:
    InvalidCharacterError(char16_t unit, std::size_t index);
    std::size_t index() const noexcept { return index_; }

private:
    std::size_t index_;
};

// The first `limit` code units of `text` with "A" to "Z" mapped to "a" to "z", whatever the locale.
// Throws InvalidCharacterError if one of them is above 127; the units after them are not looked at.
PLATFORM_API ustring asciiLower(ustring_view text, std::size_t limit = ustring::npos);

}  // namespace foundation
