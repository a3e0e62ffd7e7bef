#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace appserialization::textapp {

// Whether a name holds characters with a special meaning in a regular expression.
bool isPattern(std::string_view name);

// The lookups in an appendix by regular expression, for names that are patterns. Names are inserted
// into the expression as they are, so a group in a name is the first group, and captures instead of
// the group that is meant to capture the value. Texts and names are UTF-8, and results are views
// into the text. A result is empty if the group took no part in the match, and may begin or end
// within a character, because "." matches a byte.
//
// The standard library's search recurses for each character, and its time is exponential for some
// patterns. Here it throws std::regex_error instead: with error_stack if the pattern or the search
// would not fit into what is left of the thread's stack, with error_complexity if the search takes
// too many steps. A name may have 64 bytes of UTF-8, with repeat counts ("{3}") written out. How
// much text a lazy gap can cross depends on the thread's stack: none on 48 KiB, about 300
// characters on 128 KiB, about 40,000 on 8 MiB.
//
// Malformed patterns throw std::regex_error.

std::optional<std::string_view> findSectionByPattern(std::string_view text,
                                                     const std::string& sectionName);
std::optional<std::string_view> findElementByPattern(std::string_view text,
                                                     const std::string& elementName);
// The texts of all elements with a matching name, in document order.
std::vector<std::string_view> findElementsByPattern(std::string_view text,
                                                    const std::string& elementName);
std::optional<std::string_view> findAttributeByPattern(std::string_view text,
                                                       const std::string& elementName,
                                                       const std::string& attributeName);

}  // namespace appserialization::textapp
