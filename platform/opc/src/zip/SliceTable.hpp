#pragma once

#include "platform/opc/src/zip/ZipFormat.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace opc::zip {

// Large items are deflated in slices that do not refer to each other's content, so that several
// threads can deflate them, and inflate them again. This table says where the slices begin. It is
// an extra field of the item's directory record. To a reader that does not know the field the data
// is one ordinary deflate stream.
//
// A table is a hint: whoever uses it has to find out whether the data still is as the table says,
// because another program may have replaced the data and kept the field.
struct SliceTable {
    struct Slice {
        std::uint64_t compressedSize = 0;
        std::uint32_t crc32 = 0;  // of the content
    };

    std::uint64_t sliceSize = 0;  // of the content; the last slice may have less
    std::vector<Slice> slices = {};
};

inline constexpr std::uint64_t kSliceSize = std::uint64_t{1} << 20;

// The extra field for an item of `size` bytes that was deflated in slices of kSliceSize. Neighbours
// are merged until the field is at most 32 KiB. Empty if there are too few slices to be worth a
// field.
std::string sliceField(std::vector<SliceTable::Slice> slices, std::uint64_t size);

// Whether an item's extra fields hold a table of this version, which need not fit the item any
// more.
bool hasSliceTable(format::Bytes extraFields);
// The table among an item's extra fields; nullopt if there is none that fits the item's sizes.
std::optional<SliceTable> findSliceTable(format::Bytes extraFields, std::uint64_t size,
                                         std::uint64_t compressedSize);

}  // namespace opc::zip
