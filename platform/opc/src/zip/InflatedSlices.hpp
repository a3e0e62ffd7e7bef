#pragma once

#include <opc/Streams.hpp>

#include "platform/opc/src/zip/ItemInput.hpp"

#include <cstdint>

namespace opc::zip {

// What inflateSlices() has handed out: the first bytes of the content, and their checksum.
struct SlicesTaken {
    std::uint64_t size = 0;
    std::uint32_t crc32 = 0;
    bool hasMisfit = false;  // the table does not fit the data, or that is damaged
};

// Inflates an item with a slice table on several threads, and hands the content to `take` in order
// as long as it is certain to be what a reader without the table would get. If that is all of it,
// its checksum is the item's; otherwise a reader without the table finds out why. Nothing is taken
// if the slices are too large to be held in memory. Throws ItemError if reading fails.
SlicesTaken inflateSlices(const ItemContent& content, const InputStream::Take& take);

}  // namespace opc::zip
