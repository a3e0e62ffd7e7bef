#pragma once

#include <appserialization/ustring.hpp>

#include <cstddef>
#include <string_view>

namespace appserialization::textapp {

using ustring_view = std::u16string_view;

// Index of the first `wanted` in `text` at or after `from`, or npos. Time is linear in the two lengths
// whatever they hold; the constant is that of reading memory for text in which `wanted` is rare.
std::size_t findText(ustring_view text, ustring_view wanted, std::size_t from = 0);

// Throws fl::i18n::ConversionError unless `text` is valid UTF-16.
void requireValidUtf16(ustring_view text);

}  // namespace appserialization::textapp
