#pragma once

#include <cstdint>
#include <span>

namespace qzapp {

// The media type of an image that browsers show, by its first bytes; null for anything else.
const char* imageTypeOf(std::span<const std::uint8_t> bytes);

}  // namespace qzapp
