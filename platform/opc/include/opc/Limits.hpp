#pragma once

#include <cstddef>

namespace opc {

// The largest part of XML that is read.
inline constexpr std::size_t kMaxXmlBytes = std::size_t{16} << 20;

}  // namespace opc
