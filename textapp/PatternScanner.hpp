#pragma once

#include <appserialization/ustring.hpp>

#include <optional>
#include <vector>

namespace appserialization::textapp {

// Whether a name holds characters with a special meaning in a regular expression.
bool isPattern(const ustring& name);

// The lookups in an appendix by regular expression, for names that are patterns. Names are inserted
// into the expression as they are, so a group in a name is the first group, and captures instead of
// the group that is meant to capture the value.
//
// The standard library's search recurses for each character, and its time is exponential for some
// patterns. Here it throws std::regex_error instead: with error_stack if the pattern or the search
// would not fit into what is left of the thread's stack, with error_complexity if the search takes
// too many steps. A name may have 64 bytes of UTF-8, with repeat counts ("{3}") written out. How
// much text a lazy gap can cross depends on the thread's stack: none on 48 KiB, about 300
// characters on 128 KiB, about 40,000 on 8 MiB.
//
// Malformed patterns throw std::regex_error, and texts and names that are not valid UTF-16 throw
// fl::i18n::ConversionError.

std::optional<ustring> findSectionByPattern(const ustring& text, const ustring& sectionName);
std::optional<ustring> findElementByPattern(const ustring& text, const ustring& elementName);
// The texts of all elements with a matching name, in document order.
std::vector<ustring> findElementsByPattern(const ustring& text, const ustring& elementName);
std::optional<ustring> findAttributeByPattern(const ustring& text, const ustring& elementName,
                                              const ustring& attributeName);

}  // namespace appserialization::textapp
