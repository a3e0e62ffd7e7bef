#pragma once

#include <foundation/Export.hpp>

#include <fl/filesystem.hpp>
#include <foundation/ustring.hpp>

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>

namespace fl::filesystem {

// The identity, size and modification time of a file at one moment. Two stamps of a name are equal
// as long as nobody has replaced or rewritten the file between them.
struct FileStamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modifiedSeconds = 0;
    std::int64_t modifiedNanoseconds = 0;

    friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

PLATFORM_API FileStamp stampOf(const struct stat& status) noexcept;

// The stamp of whatever has this name; symbolic links are followed. Returns nullopt if there is no
// such file, and throws std::system_error if the system cannot say.
PLATFORM_API std::optional<FileStamp> findStamp(const path& file);

// Owns a file descriptor of the system and closes it on destruction. All operations throw
// std::system_error (with the errno) unless stated otherwise, retry EINTR, and go on after short
// reads and writes. Offsets and sizes are bytes. No operation uses the descriptor's own position,
// so several threads may read at the same time.
class PLATFORM_API FileDescriptor {
public:
    FileDescriptor() = default;
    // Takes over what the system has opened; -1 (with errno) gives an empty object. The numbers of
    // the standard streams are exchanged for a higher one, so that no message ends in a file if
    // they are closed; if none is free, the object is empty, and errno says so.
    explicit FileDescriptor(int opened) noexcept : descriptor_(aboveStandardStreams(opened)) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor();

    // Opens a regular file for reading. A directory (EISDIR) and any FIFO, socket or device
    // (EINVAL) is refused without blocking. A private name is opened as what it stands for.
    static FileDescriptor openForReading(const path& file);

    // A name by which functions that take a file name read this very file, whatever its own name
    // leads to by now: "/proc/self/fd/7/FILENAME". It is valid in this process, as long as this
    // descriptor is open. For the system there is no such file, because a regular file has nothing
    // below it, so nothing can be written or replaced under this name. openForReading(), exists(),
    // isSameFile() and the streams that only read understand it. The file must be a regular file.
    path privateName(const ustring& filename) const;

    explicit operator bool() const noexcept { return descriptor_ >= 0; }
    int get() const noexcept { return descriptor_; }

    // The size in it is what the system says, which need not be true: files in /proc and those of
    // some other file systems have the size 0 and yet content.
    FileStamp stamp() const;
    // Whether the file has a byte just before `size`, so that memory for that many bytes may be
    // taken. Always true for 0.
    bool reaches(std::uint64_t size) const;
    // Returns the number of bytes read, which is less than the buffer's size only at the end of the
    // file.
    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const;
    // The offset of the next byte of a regular file, from `offset` on, that is not in a hole of
    // zeros; the file's size if there is none. `offset` itself where the file system does not tell.
    std::uint64_t nextData(std::uint64_t offset) const;
    void writeAt(std::span<const std::byte> bytes, std::uint64_t offset);
    // Makes a range of this file share its blocks with a range of `source`, which costs the same
    // whatever their size. Returns how many of the `size` bytes are shared: `size` rounded down to
    // a multiple of 64 KiB, or 0 if the file system cannot share them or an offset is not such a
    // multiple. Throws only for an input or output error.
    std::uint64_t shareFrom(const FileDescriptor& source, std::uint64_t sourceOffset,
                            std::uint64_t size, std::uint64_t offset);
    // Copies `size` bytes of `source`, inside the kernel if the file systems allow it, otherwise
    // through a buffer of 256 KiB. Throws if `source` ends early.
    void copyFrom(const FileDescriptor& source, std::uint64_t sourceOffset, std::uint64_t size,
                  std::uint64_t offset);
    void truncate(std::uint64_t size);
    // Asks the system to start writing this range to the disk, so that a later fsync has less to
    // wait for. It makes nothing durable, and does nothing on file systems that do not support it.
    void startWriteback(std::uint64_t offset, std::uint64_t size);

private:
    static int aboveStandardStreams(int opened) noexcept;

    int descriptor_ = -1;
};

}  // namespace fl::filesystem
