#include "platform/opc/src/zip/NewItem.hpp"

#include "platform/opc/src/zip/ZipError.hpp"

#include <algorithm>

namespace opc::zip {

std::size_t MemorySource::readAt(std::span<std::byte> buffer, std::uint64_t offset) const {
    const std::size_t start = std::min<std::uint64_t>(offset, bytes_.size());
    const auto found =
        std::span(bytes_).subspan(start).first(std::min(buffer.size(), bytes_.size() - start));
    std::copy(found.begin(), found.end(), buffer.begin());
    return found.size();
}

std::size_t FileSource::readAt(std::span<std::byte> buffer, std::uint64_t offset) const {
    return file_.readAt(buffer, offset);
}

format::ItemRecord NewItem::recordAt(std::uint64_t offset) const {
    return {.name = name,
            .flags = flags,
            .method = static_cast<std::uint16_t>(method),
            .dosDateAndTime = dosDateAndTime,
            .crc32 = crc32,
            .compressedSize = compressedSize,
            .size = size,
            .offset = offset};
}

ItemContent NewItem::contentIn(const fl::filesystem::path& file) const {
    ItemContent found{.method = method,
                      .crc32 = crc32,
                      .compressedSize = compressedSize,
                      .size = size,
                      .file = file,
                      .name = displayName(name, true)};
    if (const auto* memory = std::get_if<InMemory>(&content)) found.source = *memory;
    if (const auto* scratch = std::get_if<InScratchFile>(&content)) {
        found.source = scratch->file;
        found.offset = scratch->offset;
    }
    if (const auto* placed = std::get_if<InNewFile>(&content)) {
        found.source = placed->file;
        found.offset = placed->dataOffset;
    }
    return found;
}

}  // namespace opc::zip
