#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace fl::filesystem {
class path;
}

// Text from outside as messages show it: on one line, and without characters that end it early or that
// a terminal acts on.
namespace foundation {

// Control characters, direction marks, line and paragraph separators and the byte-order mark as
// "\u001B". Bytes that are not UTF-8 show as U+FFFD.
PLATFORM_API std::string printable(std::string_view utf8);

// Like printable(), but line feeds and tabs stay. A JSON document keeps its value: outside of its
// strings it has none of the characters that are escaped.
PLATFORM_API std::string printableText(std::string_view utf8);

// Like printable(), cut where it would bury the rest of the message, and then followed by "...".
// Unpaired surrogates become U+FFFD. Paths are not cut.
inline constexpr std::size_t kMaxShownValue = 200;    // bytes of UTF-8
inline constexpr std::size_t kMaxShownMessage = 800;  // of one that holds shown values
PLATFORM_API std::string shown(std::string_view utf8, std::size_t limit = kMaxShownValue);
PLATFORM_API std::string shown(ustring_view text);
PLATFORM_API std::string shown(const fl::filesystem::path& file);

// Numbers for people: "23,456", and a limit in mebibytes as "16 MiB".
PLATFORM_API std::string shownCount(std::uint64_t count);
PLATFORM_API std::string shownMebibytes(std::uint64_t bytes);

}  // namespace foundation
