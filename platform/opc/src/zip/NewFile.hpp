#pragma once

#include "platform/opc/src/zip/ByteSource.hpp"

#include <fl/FileDescriptor.hpp>
#include <fl/ReplacementFile.hpp>
#include <fl/filesystem.hpp>
#include <foundation/ProcessMark.hpp>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace opc::zip {

// The file that a save writes, until it takes the place of the old one. It grows at its end and can
// be read at the same time. Small pieces are gathered in memory, and large ones are handed to the
// disk while the next is being made. Destroying it before commit() leaves nothing behind. Failures
// are opc::Exception, except those of readAt(). For one thread at a time, and that includes
// reading, which first writes what was gathered.
class NewFile final : public ByteSource {
public:
    // `name` is for messages. `isReporting` is true while a foundation::SaveWatch is told how far
    // the file has come: it is in the middle of a change then, and may only be read.
    NewFile(const fl::filesystem::SaveTarget& target, const fl::filesystem::path& name,
            bool& isReporting);

    // The size of the file, which is where append() writes.
    std::uint64_t tail() const noexcept { return tail_; }
    void append(std::span<const std::byte> bytes);
    // Appends `size` bytes from `offset` of another file. Shares its blocks if the file system can,
    // and copies the bytes otherwise.
    void appendFrom(const fl::filesystem::FileDescriptor& source, std::uint64_t offset,
                    std::uint64_t size);
    // Leaves a hole of `size` bytes at the tail, to be written later with writeAt().
    void reserve(std::size_t size);
    // Overwrites bytes that were appended or reserved. The tail does not move.
    void writeAt(std::span<const std::byte> bytes, std::uint64_t offset);
    // Takes back everything from `offset` on.
    void cutAt(std::uint64_t offset);
    // Puts the file in the place of the target, and returns the stamp of the file that is there
    // now.
    fl::filesystem::FileStamp commit();
    // Gives up committing, so that another NewFile can be made for the target. The content can
    // still be read.
    void abandon() noexcept { replacement_.abandon(); }

    // May be called at any time. Throws opc::Exception if gathered bytes cannot be written, and
    // std::system_error if reading fails.
    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const override;
    bool isComplete() const noexcept override { return false; }
    // The file with everything that was appended.
    const fl::filesystem::FileDescriptor& file() const;

private:
    // The file, to be changed. Throws opc::Exception in a child that was forked meanwhile: what it
    // writes late would overwrite what its parent has written since.
    fl::filesystem::FileDescriptor& ours() const;
    void writeGathered() const;
    void grow(std::uint64_t size);
    void report(std::uint64_t size) const;

    fl::filesystem::path name_;
    bool* isReporting_;
    foundation::ProcessMark process_;
    // Mutable because reading writes out what was gathered, which changes nothing that a caller
    // sees.
    mutable fl::filesystem::ReplacementFile replacement_;
    std::uint64_t tail_ = 0;
    std::uint64_t onItsWay_ = 0;               // the disk has begun to write the bytes before this
    mutable std::vector<std::byte> gathered_;  // the last bytes before the tail
};

}  // namespace opc::zip
