#pragma once

#include <foundation/ustring.hpp>

#include <cstdint>
#include <string>
#include <string_view>

namespace qzapp {

// Text for people, on one line: foundation::printable() of it.
std::string visible(std::string_view text);
std::string visible(foundation::ustring_view text);

// Text for people with its line ends and tabs: foundation::printableText() of it.
std::string visibleText(std::string_view text);

// "1 byte", "23,456 bytes".
std::string byteCount(std::uint64_t bytes);

}  // namespace qzapp
