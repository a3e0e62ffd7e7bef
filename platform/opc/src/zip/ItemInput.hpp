#pragma once

#include <opc/Streams.hpp>
#include <opc/ZipArchive.hpp>

#include <fl/filesystem.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace opc::zip {

// Bytes that can be read at any place: a file, or memory. Readers share it.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    // Fills `buffer` from `offset` and returns how much there was. Throws std::system_error.
    virtual std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const = 0;
};

// Where the content of an item is, and what it must turn out to be.
struct ItemContent {
    std::shared_ptr<const ByteSource> source = {};
    std::uint64_t offset = 0;
    Method method = Method::Stored;
    std::uint32_t crc32 = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
    bool hasDescriptor = false;
    // For messages.
    fl::filesystem::path file = {};
    std::string name = {};
};

// A stream of the content that throws rather than hand out the last byte of anything that is not
// exactly as long as declared, has another checksum, leaves deflated bytes over, or is stored and holds
// what its descriptor would be if it ended there.
std::unique_ptr<InputStream> openItem(ItemContent content);
// The same for content of one method, whatever it says itself.
std::unique_ptr<InputStream> openStored(ItemContent content);
std::unique_ptr<InputStream> openDeflated(ItemContent content);

}  // namespace opc::zip
