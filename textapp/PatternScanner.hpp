#pragma once

#include <appserialization/ustring.hpp>

#include <optional>
#include <vector>

namespace appserialization::textapp {

// Whether a name means something else in a regular expression than its own characters.
bool isPattern(const ustring& name);

// The lookups of the appendix by regular expression, for names that are patterns. Names are spliced
// in as they stand, so a group in one takes the place of the group that captures the value.
//
// The standard library's search recurses once a character, and its time is exponential for some
// patterns. Here it throws std::regex_error instead: error_stack when the pattern or the search would
// not fit what is left of the thread's stack, error_complexity when the search takes too many steps. A
// name may have 64 bytes of UTF-8, repeat counts ("{3}") multiplied out. How much text a lazy gap can
// cross depends on the stack: some 300 characters on 128 KiB, 40,000 on 8 MiB, none on 48 KiB. Invalid
// patterns throw std::regex_error, and texts and names that are not valid UTF-16 throw
// fl::i18n::ConversionError.

std::optional<ustring> findSectionByPattern(const ustring& text, const ustring& sectionName);
std::optional<ustring> findElementByPattern(const ustring& text, const ustring& elementName);
// The texts of all elements, in document order.
std::vector<ustring> findElementsByPattern(const ustring& text, const ustring& elementName);
std::optional<ustring> findAttributeByPattern(const ustring& text, const ustring& elementName,
                                              const ustring& attributeName);

}  // namespace appserialization::textapp
