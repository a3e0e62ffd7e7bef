#pragma once

#include <opc/Streams.hpp>
#include <opc/ZipArchive.hpp>

#include <fl/filesystem.hpp>

#include "platform/opc/src/zip/ByteSource.hpp"
#include "platform/opc/src/zip/SliceTable.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace opc::zip {

// Where the data of an item is, and what its content must turn out to be.
struct ItemContent {
    std::shared_ptr<const ByteSource> source = {};
    std::uint64_t offset = 0;  // of the data in the source
    Method method = Method::Stored;
    std::uint32_t crc32 = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
    bool hasDescriptor = false;  // as in ZipItem
    std::optional<SliceTable> slices = {};
    fl::filesystem::path file = {};  // for messages, like the name
    std::string name = {};           // the item's displayName()
};

// Opens the content for reading. Nothing is read before the first call of read(). That call or a
// later one throws ItemError, and every call after it does, if the content is shorter or longer
// than declared, has another checksum, leaves bytes of the data over, or is stored and holds a
// data descriptor at which some readers would end it. An item that fails never hands out its last
// byte. An empty item is verified by the first call too. The stream shares the source and takes
// memory that does not depend on the item's size. For one thread at a time; streams of one source
// are independent.
std::unique_ptr<InputStream> openItem(ItemContent content);
// What openItem() calls, by `content.method`.
std::unique_ptr<InputStream> openStored(ItemContent content);
std::unique_ptr<InputStream> openDeflated(ItemContent content);

}  // namespace opc::zip
