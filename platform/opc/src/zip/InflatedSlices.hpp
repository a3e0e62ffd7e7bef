#pragma once

#include <opc/Streams.hpp>

#include "platform/opc/src/zip/ItemInput.hpp"

#include <cstdint>

namespace opc::zip {

// Inflates an item with a slice table on several threads, and hands the content to `take` in order as
// long as it is certain to be what a reader without the table would get. Returns how many bytes that
// was: all of them, and then their checksum is the item's, or fewer. In the second case the table does
// not fit or the item is damaged, and a reader without the table finds out which. Throws
// ItemError if reading fails.
std::uint64_t inflateSlices(const ItemContent& content, const InputStream::Take& take);

}  // namespace opc::zip
