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

// Turns text from outside (names, values, file contents) into what messages show: UTF-8 on one
// line, without characters that a terminal would act on. Nothing here fails on content.
namespace foundation {

// Escapes control characters, direction marks, line and paragraph separators and the byte-order
// mark as "\u001B". Bytes that are not UTF-8 become U+FFFD.
PLATFORM_API std::string printable(std::string_view utf8);

// Like printable(), but keeps line feeds and tabs. A JSON document keeps its meaning, because
// outside of its strings it holds none of the characters that are escaped.
PLATFORM_API std::string printableText(std::string_view utf8);

inline constexpr std::size_t kMaxShownValue = 200;    // bytes of UTF-8
inline constexpr std::size_t kMaxShownMessage = 800;  // bytes of a whole message

// Like printable(), but cuts `utf8` between characters after `limit` bytes, adding "...", so that
// it does not bury the rest of the message.
PLATFORM_API std::string shown(std::string_view utf8, std::size_t limit = kMaxShownValue);
// UTF-16 text, cut after kMaxShownValue bytes. Unpaired surrogates become U+FFFD.
PLATFORM_API std::string shown(ustring_view text);
// A path is not cut, because a reader needs all of it.
PLATFORM_API std::string shown(const fl::filesystem::path& file);

// The columns that `utf8` takes on a terminal: two for a wide character of East Asian scripts or an
// emoji, none for a combining mark.
PLATFORM_API std::size_t displayWidth(std::string_view utf8);

// With separators: "23,456".
PLATFORM_API std::string shownCount(std::uint64_t count);
// In mebibytes, rounded down: "16 MiB".
PLATFORM_API std::string shownMebibytes(std::uint64_t bytes);

}  // namespace foundation
