#include "platform/opc/src/zip/StoredBlocks.hpp"

#include "platform/opc/src/zip/ZipFormat.hpp"

#include <array>
#include <cstdint>
#include <vector>

namespace opc::zip {

namespace {

// Half of what a block can hold, so that the last byte of its header, which is the upper half of
// the length's complement, is at least 0x7F. That is in no signature, as is the first byte of the
// header, so none has its end in a header or contains one.
constexpr std::size_t kMostInBlock = std::size_t{32} << 10;

// Whether the last four bytes, the last of them in the upper bits, are a signature that some reader
// searches for.
bool isEndSignature(std::uint32_t bytes) {
    using namespace format;
    return bytes == end::kSignature || bytes == zip64end::kSignature ||
           bytes == zip64locator::kSignature;
}

}  // namespace

void writeStoredBlock(std::span<const std::byte> content, bool isLast, ByteSink& sink) {
    const auto size = static_cast<std::uint16_t>(content.size());
    const auto complement = static_cast<std::uint16_t>(~size);
    const std::array header = {
        std::byte{isLast}, static_cast<std::byte>(size & 0xFF), static_cast<std::byte>(size >> 8),
        static_cast<std::byte>(complement & 0xFF), static_cast<std::byte>(complement >> 8)};
    sink.append(header);
    sink.append(content);
}

void writeStoredBlocks(InputStream& content, ByteSink& sink) {
    std::vector<std::byte> buffer(kMostInBlock);
    std::uint32_t last = 0;
    while (true) {
        std::size_t count = 0;
        while (const std::size_t got = content.read(std::span(buffer).subspan(count)))
            count += got;
        if (count == 0) break;
        std::size_t from = 0;
        for (std::size_t i = 0; i < count; ++i) {
            last = last >> 8 | std::to_integer<std::uint32_t>(buffer[i]) << 24;
            if (!isEndSignature(last)) continue;
            if (i != from) writeStoredBlock(std::span(buffer).subspan(from, i - from), false, sink);
            from = i;
        }
        writeStoredBlock(std::span(buffer).subspan(from, count - from), false, sink);
    }
    writeStoredBlock({}, true, sink);
}

}  // namespace opc::zip
