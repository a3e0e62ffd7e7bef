#pragma once

#include <cstddef>
#include <string_view>

namespace appserialization::textapp {

using ustring_view = std::u16string_view;

// The index of the first `wanted` in `text` at or after `from`, or npos. The time is linear in the
// two lengths, whatever the texts are, and close to that of reading `text` if the first two code
// units of `wanted` are rare in it.
std::size_t findText(ustring_view text, ustring_view wanted, std::size_t from = 0);

// Throws fl::i18n::ConversionError, with the index of the first unpaired surrogate, unless `text`
// is valid UTF-16.
void requireValidUtf16(ustring_view text);

}  // namespace appserialization::textapp
