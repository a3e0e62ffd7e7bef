#include <fl/FileDescriptor.hpp>

#include <fl/Retry.hpp>
#include <fl/SystemCalls.hpp>
#include <fl/i18n.hpp>

#include <fcntl.h>
#include <linux/fs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

namespace fl::filesystem {

namespace {

// The system copies up to 2 GiB in one call. We ask for less, so that it notices a signal within a
// second.
constexpr std::uint64_t kLargestCopy = std::uint64_t{1} << 30;
constexpr std::size_t kCopyBuffer = std::size_t{256} << 10;

// Private names start with this.
constexpr std::string_view kOpenFiles = "/proc/self/fd/";

int refusalOf(mode_t mode) {
    if (S_ISREG(mode)) return 0;
    return S_ISDIR(mode) ? EISDIR : EINVAL;
}

void refuseIrregular(mode_t mode) {
    if (const int error = refusalOf(mode)) throwSystemError(error, "is not a regular file");
}

struct stat statusOf(int descriptor) {
    struct stat status {};
    if (retryInterrupted([&] { return systemCalls().fstat(descriptor, &status); }) < 0) {
        throwSystemError(errno, "cannot stat");
    }
    return status;
}

// A multiple of the block sizes of the common file systems that share blocks. A file system with
// larger blocks refuses.
constexpr std::uint64_t kLargestBlock = std::uint64_t{64} << 10;

constexpr const char* kCannotWrite = "cannot write";

bool isLackOfRoom(int error) {
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

// Whether the error means that copy_file_range does not support this pair of files, so that they
// have to be copied by reading and writing.
bool isUnsupportedCopy(int error) {
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP ||
           error == EPERM;
}

void copyThroughMemory(const FileDescriptor& source, std::uint64_t sourceOffset, std::uint64_t size,
                       FileDescriptor& target, std::uint64_t offset) {
    const auto buffer = std::make_unique_for_overwrite<std::byte[]>(kCopyBuffer);
    while (size > 0) {
        const std::size_t wanted = std::min<std::uint64_t>(size, kCopyBuffer);
        const std::size_t got = source.readAt({buffer.get(), wanted}, sourceOffset);
        if (got < wanted) throwSystemError(EIO, "the file to copy from ended early");
        target.writeAt({buffer.get(), got}, offset);
        sourceOffset += got;
        offset += got;
        size -= got;
    }
}

}  // namespace

namespace detail {

namespace {

// Whether the system may have refused a private name with this error. Normally that is ENOTDIR; the
// others occur if /proc is not mounted or may not be searched.
bool mayBePrivate(int error) {
    return error == ENOTDIR || error == ENOENT || error == EACCES || error == EPERM;
}

// The number 7 in "/proc/self/fd/7/FILENAME"; -1 for a name of another form.
int numberIn(std::string_view name) {
    if (!name.starts_with(kOpenFiles)) return -1;
    int number = -1;
    const char* const end = name.data() + name.size();
    const auto read = std::from_chars(name.data() + kOpenFiles.size(), end, number);
    const std::string_view rest(read.ptr, end);
    const bool isPrivate = read.ec == std::errc() && rest.size() > 1 && rest.rfind('/') == 0;
    return isPrivate ? number : -1;
}

}  // namespace

int descriptorOf(const path& refused, int error) {
    const int number =
        mayBePrivate(error) ? numberIn(detail::make_native_access_form_i18n(refused)) : -1;
    struct stat status {};
    const bool isOpen = number >= 0 && ::fstat(number, &status) == 0 && S_ISREG(status.st_mode);
    errno = error;
    return isOpen ? number : -1;
}

int openPrivateName(const path& refused, int error) {
    const int held = descriptorOf(refused, error);
    if (held < 0) return -1;
    const int opened = ::fcntl(held, F_DUPFD_CLOEXEC, 0);
    // The new descriptor shares its position with the held one. Only streams use the position.
    if (opened >= 0) ::lseek(opened, 0, SEEK_SET);
    return opened;
}

}  // namespace detail

FileStamp stampOf(const struct stat& status) noexcept {
    return {.device = status.st_dev,
            .inode = status.st_ino,
            .size = static_cast<std::uint64_t>(status.st_size),
            .modifiedSeconds = status.st_mtim.tv_sec,
            .modifiedNanoseconds = status.st_mtim.tv_nsec};
}

int FileDescriptor::aboveStandardStreams(int opened) noexcept {
    if (opened < 0 || opened > STDERR_FILENO) return opened;
    const int flags = ::fcntl(opened, F_GETFD);
    const int moved =
        ::fcntl(opened, (flags & FD_CLOEXEC) != 0 ? F_DUPFD_CLOEXEC : F_DUPFD, STDERR_FILENO + 1);
    const int error = errno;
    systemCalls().close(opened);
    errno = error;
    return moved;
}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
        FileDescriptor closed(std::exchange(descriptor_, std::exchange(other.descriptor_, -1)));
    }
    return *this;
}

FileDescriptor::~FileDescriptor() {
    if (descriptor_ >= 0) systemCalls().close(descriptor_);
}

FileDescriptor FileDescriptor::openForReading(const path& file) {
    const std::string name = detail::make_native_access_form_i18n(file);
    if (name.empty()) throwSystemError(ENOENT, "cannot open");
    // We look at the file before opening it, because the other end of a FIFO or device would notice
    // being opened.
    struct stat status {};
    if (retryInterrupted(
            [&] { return systemCalls().fstatat(AT_FDCWD, name.c_str(), &status, 0); }) < 0) {
        FileDescriptor held(detail::openPrivateName(file, errno));
        if (!held) throwSystemError(errno, "cannot open");
        return held;
    }
    refuseIrregular(status.st_mode);
    // We look again afterwards, because the file may have been exchanged in between. O_NONBLOCK
    // keeps the call from blocking if it has become a FIFO.
    FileDescriptor opened(retryInterrupted([&] {
        return systemCalls().openat(AT_FDCWD, name.c_str(),
                                    O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0);
    }));
    if (!opened) throwSystemError(errno, "cannot open");
    refuseIrregular(statusOf(opened.get()).st_mode);
    return opened;
}

path FileDescriptor::privateName(const ustring& filename) const {
    const std::string folder =
        std::string(kOpenFiles).append(std::to_string(descriptor_)).append("/");
    return path(i18n::utf8_to_ustring_strict(folder) + filename);
}

FileStamp FileDescriptor::stamp() const {
    return stampOf(statusOf(descriptor_));
}

bool FileDescriptor::reaches(std::uint64_t size) const {
    std::byte last{};
    return size == 0 || readAt({&last, 1}, size - 1) == 1;
}

std::size_t FileDescriptor::readAt(std::span<std::byte> buffer, std::uint64_t offset) const {
    std::size_t done = 0;
    while (done < buffer.size()) {
        const ssize_t got = retryInterrupted([&] {
            return systemCalls().pread(descriptor_, buffer.data() + done, buffer.size() - done,
                                       static_cast<off_t>(offset + done));
        });
        if (got < 0) throwSystemError(errno, "cannot read");
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

std::uint64_t FileDescriptor::nextData(std::uint64_t offset) const {
    const off_t data = ::lseek(descriptor_, static_cast<off_t>(offset), SEEK_DATA);
    if (data >= 0) return std::max(offset, static_cast<std::uint64_t>(data));
    return errno == ENXIO ? std::max(offset, stamp().size) : offset;
}

void FileDescriptor::writeAt(std::span<const std::byte> bytes, std::uint64_t offset) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t put = retryInterrupted([&] {
            return systemCalls().pwrite(descriptor_, bytes.data() + done, bytes.size() - done,
                                        static_cast<off_t>(offset + done));
        });
        if (put < 0) throwSystemError(errno, kCannotWrite);
        // If a file accepts nothing and reports no error, this loop would never end.
        if (put == 0) throwSystemError(EIO, kCannotWrite);
        done += static_cast<std::size_t>(put);
    }
}

std::uint64_t FileDescriptor::shareFrom(const FileDescriptor& source, std::uint64_t sourceOffset,
                                        std::uint64_t size, std::uint64_t offset) {
    const std::uint64_t blocks = size / kLargestBlock * kLargestBlock;
    if (blocks == 0 || sourceOffset % kLargestBlock != 0 || offset % kLargestBlock != 0) return 0;
    const file_clone_range range{.src_fd = source.descriptor_,
                                 .src_offset = sourceOffset,
                                 .src_length = blocks,
                                 .dest_offset = offset};
    if (retryInterrupted([&] { return systemCalls().cloneRange(descriptor_, &range); }) == 0) {
        return blocks;
    }
    // Every other error is a reason not to share, but none not to copy: for example, a part of the
    // disk may be full.
    if (errno == EIO) throwSystemError(errno, "cannot share its blocks");
    return 0;
}

void FileDescriptor::copyFrom(const FileDescriptor& source, std::uint64_t sourceOffset,
                              std::uint64_t size, std::uint64_t offset) {
    while (size > 0) {
        auto from = static_cast<off_t>(sourceOffset);
        auto to = static_cast<off_t>(offset);
        const ssize_t moved = retryInterrupted([&] {
            return systemCalls().copy_file_range(source.descriptor_, &from, descriptor_, &to,
                                                 std::min(size, kLargestCopy), 0);
        });
        // Some file systems return 0 if they do not support the call. Reading finds out whether the
        // source has really ended.
        if (moved == 0 || (moved < 0 && isUnsupportedCopy(errno))) {
            return copyThroughMemory(source, sourceOffset, size, *this, offset);
        }
        if (moved < 0) throwSystemError(errno, isLackOfRoom(errno) ? kCannotWrite : "cannot copy");
        sourceOffset += static_cast<std::uint64_t>(moved);
        offset += static_cast<std::uint64_t>(moved);
        size -= static_cast<std::uint64_t>(moved);
    }
}

void FileDescriptor::truncate(std::uint64_t size) {
    if (retryInterrupted(
            [&] { return systemCalls().ftruncate(descriptor_, static_cast<off_t>(size)); }) < 0) {
        throwSystemError(errno, "cannot truncate");
    }
}

// Only the request can fail here. If the data cannot be written, the later fsync fails.
void FileDescriptor::startWriteback(std::uint64_t offset, std::uint64_t size) {
    if (retryInterrupted([&] {
            return systemCalls().sync_file_range(descriptor_, static_cast<off_t>(offset),
                                                 static_cast<off_t>(size), SYNC_FILE_RANGE_WRITE);
        }) == 0) {
        return;
    }
    const bool isUnsupported = errno == ENOSYS || errno == EINVAL || errno == ESPIPE;
    if (!isUnsupported) throwSystemError(errno, kCannotWrite);
}

}  // namespace fl::filesystem
