#pragma once

#include <foundation/ustring.hpp>

#include <cstdint>
#include <string>
#include <string_view>

namespace qzapp {

// `text` made safe to show on one line of a terminal, by foundation::printable(): line ends, tabs
// and what a terminal acts on are escaped.
std::string visible(std::string_view text);
std::string visible(foundation::ustring_view text);

// Like visible(), but line ends and tabs stay as they are (foundation::printableText()).
std::string visibleText(std::string_view text);

// "1 byte", "23,456 bytes".
std::string byteCount(std::uint64_t bytes);

}  // namespace qzapp
