#pragma once

#include "platform/opc/src/zip/ItemInput.hpp"

#include <fl/ReplacementFile.hpp>

#include <vector>

namespace opc::zip {

// The new zip file while it grows at its end. Failures are opc::Exception.
class NewFile final : public ByteSource {
public:
    // `name` is for messages.
    NewFile(const fl::filesystem::SaveTarget& target, const fl::filesystem::path& name);

    std::uint64_t tail() const noexcept { return tail_; }
    // Small pieces are gathered until something else is done.
    void append(std::span<const std::byte> bytes);
    void appendFrom(const fl::filesystem::FileDescriptor& source, std::uint64_t offset,
                    std::uint64_t size);
    // Leaves `size` bytes to be written later with writeAt().
    void reserve(std::size_t size);
    void writeAt(std::span<const std::byte> bytes, std::uint64_t offset);
    // Takes back everything from `offset` on.
    void cutAt(std::uint64_t offset);
    // Returns the stamp of the file, which is in its place now.
    fl::filesystem::FileStamp commit();
    // Will not be committed; what it holds can still be read.
    void abandon() noexcept { replacement_.abandon(); }

    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const override;
    const fl::filesystem::FileDescriptor& file() const;

private:
    void writeGathered() const;
    void grow(std::uint64_t size);

    fl::filesystem::path name_;
    // Reading does not change the file, though its handle is not const.
    mutable fl::filesystem::ReplacementFile replacement_;
    std::uint64_t tail_ = 0;
    std::uint64_t onItsWay_ = 0;               // up to here, writing to the disk has begun
    mutable std::vector<std::byte> gathered_;  // the last bytes before the tail
};

}  // namespace opc::zip
