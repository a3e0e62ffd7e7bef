#pragma once

#include <fl/FileDescriptor.hpp>

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace opc::zip {

// Bytes that can be read at any offset: a file or memory. Several readers may share a source.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    // Fills `buffer` with the bytes from `offset` and returns how many there were: fewer than there
    // is room for only at the end of the source. Throws std::system_error if reading fails.
    virtual std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const = 0;
    // The offset at or after `offset` where bytes begin that may be other than zero; the size if
    // there are none.
    virtual std::uint64_t nextData(std::uint64_t offset) const { return offset; }
    // Whether it never changes, so that several threads may read it at the same time.
    virtual bool isComplete() const noexcept { return true; }
};

// A source of bytes in memory.
class MemorySource final : public ByteSource {
public:
    explicit MemorySource(std::vector<std::byte> bytes) : bytes_(std::move(bytes)) {}
    std::span<const std::byte> bytes() const noexcept { return bytes_; }
    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const override;

private:
    std::vector<std::byte> bytes_;
};

// A source of the bytes in a file, which it owns.
class FileSource final : public ByteSource {
public:
    explicit FileSource(fl::filesystem::FileDescriptor file) : file_(std::move(file)) {}
    const fl::filesystem::FileDescriptor& file() const noexcept { return file_; }
    void write(std::span<const std::byte> bytes, std::uint64_t offset) {
        file_.writeAt(bytes, offset);
    }
    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const override;
    std::uint64_t nextData(std::uint64_t offset) const override;

private:
    fl::filesystem::FileDescriptor file_;
};

}  // namespace opc::zip
