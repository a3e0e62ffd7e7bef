#pragma once

#include <foundation/ustring.hpp>

#include <fl/filesystem.hpp>

#include <cstddef>
#include <string>
#include <string_view>

namespace opc {

// Text from outside as a message shows it: on one line, without control characters, and cut where it
// would bury the rest of the message. Paths are not cut.
inline constexpr std::size_t kMaxShownValue = 200;    // bytes of UTF-8
inline constexpr std::size_t kMaxShownMessage = 800;  // of one that holds shown values
std::string shown(std::string_view utf8, std::size_t limit = kMaxShownValue);
std::string shown(foundation::ustring_view text);
std::string shown(const fl::filesystem::path& file);

}  // namespace opc
