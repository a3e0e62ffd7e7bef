#pragma once

#include "platform/opc/src/zip/ItemInput.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <variant>
#include <vector>

namespace opc::zip {

class MemorySource final : public ByteSource {
public:
    explicit MemorySource(std::vector<std::byte> bytes) : bytes_(std::move(bytes)) {}
    std::span<const std::byte> bytes() const noexcept { return bytes_; }
    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const override;

private:
    std::vector<std::byte> bytes_;
};

class FileSource final : public ByteSource {
public:
    explicit FileSource(fl::filesystem::FileDescriptor file) : file_(std::move(file)) {}
    const fl::filesystem::FileDescriptor& file() const noexcept { return file_; }
    void write(std::span<const std::byte> bytes, std::uint64_t offset) {
        file_.writeAt(bytes, offset);
    }
    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const override;

private:
    fl::filesystem::FileDescriptor file_;
};

// An item that was set in this session. Its encoded content waits in memory or in a file without a
// name, or stands in its place in the new file already.
struct NewItem {
    using InMemory = std::shared_ptr<const MemorySource>;
    struct InScratchFile {
        std::shared_ptr<const FileSource> file;
        std::uint64_t offset;
    };
    struct InNewFile {
        std::shared_ptr<const ByteSource> file;
        std::uint64_t dataOffset;
    };

    std::string name;
    std::uint16_t flags = 0;
    std::uint32_t dosDateAndTime = 0;
    Method method = Method::Stored;
    std::uint32_t crc32 = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
    std::uint64_t turn = 0;  // when an item of this name was first set
    std::variant<InMemory, InScratchFile, InNewFile> content;

    format::ItemRecord recordAt(std::uint64_t offset) const;
    // For reading it back; `file` is for messages.
    ItemContent contentIn(const fl::filesystem::path& file) const;
};

}  // namespace opc::zip
