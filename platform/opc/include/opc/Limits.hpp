#pragma once

#include <cstddef>

namespace opc {

// The largest XML part, in bytes, that is read or written. A larger one is refused by name.
inline constexpr std::size_t kMaxXmlBytes = std::size_t{16} << 20;

}  // namespace opc
