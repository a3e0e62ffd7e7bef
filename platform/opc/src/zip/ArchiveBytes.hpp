#pragma once

#include "platform/opc/src/zip/ZipFormat.hpp"

#include <fl/FileDescriptor.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace opc::zip {

// Buffered reading of a zip file for the checks that open it. Two parts of the file are in memory:
// its tail, where the directory and the last items are, and a window of 64 KiB that moves to where
// it is needed. So a file of many small items is read in few calls, and of a large item no more is
// read than of a small one. Made for the duration of one opening, and used by one thread. A failure
// to read is a std::system_error, also when the file has become shorter than `fileSize`.
class ArchiveBytes {
public:
    // Reads the last `tailSize` bytes of `file`, which must outlive this object.
    ArchiveBytes(const fl::filesystem::FileDescriptor& file, std::uint64_t fileSize,
                 std::size_t tailSize);

    std::uint64_t fileSize() const noexcept { return fileSize_; }
    // The last bytes of the file: as many as were asked for, or all of a shorter file.
    format::Bytes tail() const noexcept { return tail_; }

    // `size` bytes from `offset`; both must lie within the file. The view is valid until the next
    // call. `nearby` is where the following item or record begins: if that is less than a window
    // away, a whole window is read, in the expectation that the next call finds its bytes there.
    format::Bytes at(std::uint64_t offset, std::size_t size, std::uint64_t nearby);
    // The offset of the first occurrence of a record's signature that lies wholly in the bytes
    // [from, to); nullopt if there is none. Invalidates the view that at() returned.
    std::optional<std::uint64_t> find(std::uint32_t signature, std::uint64_t from,
                                      std::uint64_t to);
    // Fills `target` with the bytes from `offset`. The window stays where it is.
    void copy(std::uint64_t offset, std::span<std::byte> target);

private:
    void fill(std::span<std::byte> target, std::uint64_t offset) const;

    const fl::filesystem::FileDescriptor* file_;
    std::uint64_t fileSize_;
    std::uint64_t tailOffset_;
    std::unique_ptr<std::byte[]> tailBytes_;  // not a vector, which would fill it with zeros first
    std::span<std::byte> tail_;
    std::uint64_t windowOffset_ = 0;
    std::vector<std::byte> window_;
};

}  // namespace opc::zip
