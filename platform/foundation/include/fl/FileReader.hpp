#pragma once

#include <foundation/Export.hpp>

#include <fl/FileDescriptor.hpp>
#include <fl/filesystem.hpp>
#include <foundation/ProcessMark.hpp>

#include <cstddef>
#include <cstdint>
#include <span>

namespace fl::filesystem {

// Reads whatever has a name once, from its start to its end: a file, or a FIFO or device. A file is
// read by a position of the object's own. The position of a descriptor, which streams use, is
// shared with a child that was forked meanwhile, so what the child reads would be missing here.
class PLATFORM_API FileReader {
public:
    // Waits for the other end of a FIFO. Opens the private name of an open file
    // (FileDescriptor::privateName), too. If nothing can be opened, isOpen() is false, and errno
    // says why. Throws std::system_error if the system cannot say what it has opened.
    explicit FileReader(const path& file);

    bool isOpen() const noexcept { return static_cast<bool>(file_); }
    // Returns the number of bytes read, which is less than the buffer's size only at the end.
    // Throws std::system_error if reading fails, if a file ends before the size that it had when it
    // was opened, and in a child that was forked meanwhile.
    std::size_t read(std::span<std::byte> buffer);

private:
    FileDescriptor file_;
    bool hasPositions_ = false;
    std::uint64_t size_ = 0;  // of a regular file
    std::uint64_t position_ = 0;
    foundation::ProcessMark process_;
};

}  // namespace fl::filesystem
