#include "platform/foundation/src/fl/TemporaryFile.hpp"

#include <fl/ReplacementFile.hpp>
#include <fl/Retry.hpp>
#include <fl/SystemCalls.hpp>

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <random>
#include <string_view>

namespace fl::filesystem {

namespace {

constexpr int kNameAttempts = 100;
constexpr mode_t kPrivate = 0600;

// Cuts `base` between characters to at most `limit` bytes.
std::string shortened(const std::string& base, std::size_t limit) {
    if (base.size() <= limit) return base;
    while (limit > 0 && (static_cast<unsigned char>(base[limit]) & 0xC0) == 0x80)
        --limit;
    return base.substr(0, limit);
}

std::string temporaryName(const std::string& target) {
    constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz0123456789";
    constexpr std::size_t kRandom = 6;
    constexpr std::string_view kSuffix = ".tmp";
    std::random_device random;
    std::string letters;
    for (std::size_t i = 0; i < kRandom; ++i)
        letters += kLetters[random() % kLetters.size()];
    const std::size_t room = NAME_MAX - kRandom - kSuffix.size() - 2;
    std::string name = ".";
    return name.append(shortened(target, room)).append(".").append(letters).append(kSuffix);
}

// Calls `create` with new temporary names until it creates one, and returns that name.
template <class Create>
std::string withFreeName(const std::string& target, const char* what, Create create) {
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        std::string name = temporaryName(target);
        if (retryInterrupted([&] { return create(name.c_str()); }) == 0) return name;
        if (errno != EEXIST) throwSystemError(errno, what);
    }
    throwSystemError(EEXIST, what);
}

// The entry of an open file by which it can be linked to a name. It is that of this thread, because
// a thread may have descriptors of its own, and the main thread may have ended.
std::string entryOf(const FileDescriptor& file) {
    return "/proc/thread-self/fd/" + std::to_string(file.get());
}

// 0 if a name leads to this very file, otherwise why not: EBADF if it leads to another one.
int errorOfName(int directory, const char* name, int flags, const FileDescriptor& file) {
    struct stat found {};
    if (retryInterrupted([&] { return systemCalls().fstatat(directory, name, &found, flags); }) <
        0) {
        return errno;
    }
    const FileStamp stamp = file.stamp();
    return found.st_dev == stamp.device && found.st_ino == stamp.inode ? 0 : EBADF;
}

// Whether the file can be linked by its entry. A sandbox may lack /proc, forbid looking into it, or
// have a folder of its own there.
bool canBeLinked(const FileDescriptor& file) {
    const int error = errorOfName(AT_FDCWD, entryOf(file).c_str(), 0, file);
    const bool isClosed =
        error == EBADF || error == ENOENT || error == ENOTDIR || error == EACCES || error == EPERM;
    if (error != 0 && !isClosed) throwSystemError(error, "cannot look into /proc");
    return error == 0;
}

// Opens a file without a name. Returns an empty descriptor if the file system does not support
// that.
FileDescriptor openUnnamed(const FileDescriptor& directory, mode_t mode) {
    FileDescriptor file(retryInterrupted([&] {
        return systemCalls().openat(directory.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, mode);
    }));
    // Systems that do not know O_TMPFILE at all fail with EISDIR or ENOENT.
    const bool isUnsupported =
        errno == EOPNOTSUPP || errno == EISDIR || errno == ENOENT || errno == EINVAL;
    if (!file && !isUnsupported) throwSystemError(errno, kCannotCreateFile);
    return file;
}

std::string openNamed(const FileDescriptor& directory, const std::string& target, mode_t mode,
                      const foundation::ProcessMark& process, FileDescriptor& file) {
    return withFreeName(target, kCannotCreateFile, [&](const char* name) {
        requireOwn(process);
        const int opened = systemCalls().openat(
            directory.get(), name, O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC | O_NOFOLLOW, mode);
        file = FileDescriptor(opened);
        if (file || opened < 0) return file ? 0 : -1;
        const int error = errno;  // there is a file, but no descriptor for it
        removeName(directory, name);
        errno = error;
        return -1;
    });
}

}  // namespace

TemporaryFile::TemporaryFile(const FileDescriptor& directory, const std::string& target,
                             const foundation::ProcessMark& process)
    : directory_(&directory),
      process_(&process),
      target_(target),
      file_(openUnnamed(directory, kPrivate)) {
    if (file_ && canBeLinked(file_)) return;
    file_ = {};
    name_ = openNamed(directory, target, kPrivate, process, file_);
}

const std::string& TemporaryFile::name() {
    if (!name_.empty()) return name_;
    constexpr const char* kWhat = "cannot name the temporary file";
    const std::string entry = entryOf(file_);
    name_ = withFreeName(target_, kWhat, [&](const char* free) {
        requireOwn(*process_);
        return systemCalls().linkat(AT_FDCWD, entry.c_str(), directory_->get(), free,
                                    AT_SYMLINK_FOLLOW);
    });
    // What gets the target's name must be what was written, whatever the entry stands for by now.
    const int error = errorOfName(directory_->get(), name_.c_str(), AT_SYMLINK_NOFOLLOW, file_);
    if (error != 0) throwSystemError(error, kWhat);
    return name_;
}

void TemporaryFile::removeName() noexcept {
    if (!name_.empty() && process_->isOfThisProcess()) filesystem::removeName(*directory_, name_);
    name_.clear();
}

FileDescriptor createScratch(const FileDescriptor& directory, const std::string& target,
                             mode_t mode, const foundation::ProcessMark& process) {
    FileDescriptor file = openUnnamed(directory, mode);
    if (file) return file;
    const std::string name = openNamed(directory, target, mode, process, file);
    requireOwn(process);
    if (removeName(directory, name) < 0) {
        throwSystemError(errno, "cannot remove a temporary file");
    }
    return file;
}

int removeName(const FileDescriptor& directory, const std::string& name) noexcept {
    return retryInterrupted(
        [&] { return systemCalls().unlinkat(directory.get(), name.c_str(), 0); });
}

}  // namespace fl::filesystem
