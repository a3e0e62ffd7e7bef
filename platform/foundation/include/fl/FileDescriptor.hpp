#pragma once

#include <foundation/Export.hpp>

#include <fl/filesystem.hpp>

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>

namespace fl::filesystem {

// What a file was when it was looked at. Equal while nobody has replaced or rewritten it.
struct FileStamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modifiedSeconds = 0;
    std::int64_t modifiedNanoseconds = 0;

    friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

PLATFORM_API FileStamp stampOf(const struct stat& status) noexcept;

// Of whatever has this name, symbolic links followed; nullopt when nothing has. Throws
// std::system_error when that cannot be told.
PLATFORM_API std::optional<FileStamp> findStamp(const path& file);

// An open file of the system, closed on destruction. All operations throw std::system_error (with
// the errno) unless stated otherwise, retry EINTR, and go on after short reads and writes.
class PLATFORM_API FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor();

    // Opens a regular file for reading. A directory (EISDIR) and any FIFO, socket or device
    // (EINVAL) is refused without blocking. A private name is opened as what it stands for.
    static FileDescriptor openForReading(const path& file);

    // A name for this open regular file, by which whatever takes names reads it, and nothing else,
    // wherever its own name leads by now: "/proc/self/fd/7/FILENAME". The system says of it that there
    // is no such file, since nothing is below a regular file; openForReading(), exists(),
    // isSameFile() and streams that read take it for the open file, in this process
    // and as long as this descriptor is open. Nothing is written or replaced under it.
    path privateName(const ustring& filename) const;

    explicit operator bool() const noexcept { return descriptor_ >= 0; }
    int get() const noexcept { return descriptor_; }

    FileStamp stamp() const;
    // Bytes read into `buffer`, fewer than asked for only at the end of the file.
    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const;
    void writeAt(std::span<const std::byte> bytes, std::uint64_t offset);
    // Takes over the first of `size` bytes of another file without copying them, whatever their
    // number, where the file system can share blocks and both offsets are multiples of 64 KiB.
    // Returns how many: `size` rounded down to such a multiple, or 0 where it cannot.
    std::uint64_t shareFrom(const FileDescriptor& source, std::uint64_t sourceOffset,
                            std::uint64_t size, std::uint64_t offset);
    // Takes over `size` bytes of another file, inside the kernel where it can. Throws when the source
    // ends early.
    void copyFrom(const FileDescriptor& source, std::uint64_t sourceOffset, std::uint64_t size,
                  std::uint64_t offset);
    void truncate(std::uint64_t size);
    // Has the system begin to write this part to the disk, so that a later fsync finds less to wait
    // for. Nothing is durable by that. Does nothing where the file system cannot.
    void startWriteback(std::uint64_t offset, std::uint64_t size);

private:
    int descriptor_ = -1;
};

}  // namespace fl::filesystem
