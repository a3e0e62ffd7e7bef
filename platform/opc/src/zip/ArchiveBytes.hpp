#pragma once

#include "platform/opc/src/zip/ZipFormat.hpp"

#include <fl/FileDescriptor.hpp>

#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace opc::zip {

// The bytes of a zip file around the places that are being looked at: its end, where the directory
// and the last items are, and one window that moves through the rest. So a file of many small items
// is read in few calls, and one large item costs no more than a small one.
class ArchiveBytes {
public:
    // Reads the last `tailSize` bytes. Failures are std::system_error, here and below.
    ArchiveBytes(const fl::filesystem::FileDescriptor& file, std::uint64_t fileSize,
                 std::size_t tailSize);

    std::uint64_t fileSize() const noexcept { return fileSize_; }
    format::Bytes tail() const noexcept { return tail_; }

    // `size` bytes from `offset`, which must lie within the file; valid until the next call. The
    // next places to be looked at are expected before `nearby`, when that is near.
    format::Bytes at(std::uint64_t offset, std::size_t size, std::uint64_t nearby);
    // Where a record of this signature first starts in the bytes [from, to); nullopt when none does.
    std::optional<std::uint64_t> find(std::uint32_t signature, std::uint64_t from,
                                      std::uint64_t to);
    // Fills `target`, past the window.
    void copy(std::uint64_t offset, std::span<std::byte> target);

private:
    void fill(std::span<std::byte> target, std::uint64_t offset) const;

    const fl::filesystem::FileDescriptor* file_;
    std::uint64_t fileSize_;
    std::uint64_t tailOffset_;
    std::unique_ptr<std::byte[]> tailBytes_;  // no vector, which would zero them first
    std::span<std::byte> tail_;
    std::uint64_t windowOffset_ = 0;
    std::vector<std::byte> window_;
};

}  // namespace opc::zip
