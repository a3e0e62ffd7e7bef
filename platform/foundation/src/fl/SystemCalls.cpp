#include <fl/SystemCalls.hpp>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdio>

namespace fl::filesystem {

namespace {

// The system's openat() and ioctl() are variadic, so their addresses do not fit the table.
int openAt(int directory, const char* name, int flags, mode_t mode) {
    return ::openat(directory, name, flags, mode);
}

int cloneRange(int target, const file_clone_range* range) {
    return ::ioctl(target, FICLONERANGE, range);
}

}  // namespace

SystemCalls& systemCalls() noexcept {
    static SystemCalls calls{
        .openat = openAt,
        .fstat = ::fstat,
        .fstatat = ::fstatat,
        .faccessat = ::faccessat,
        .readlinkat = ::readlinkat,
        .read = ::read,
        .pread = ::pread,
        .pwrite = ::pwrite,
        .copy_file_range = ::copy_file_range,
        .cloneRange = cloneRange,
        .sync_file_range = ::sync_file_range,
        .ftruncate = ::ftruncate,
        .fsync = ::fsync,
        .fchown = ::fchown,
        .fchmod = ::fchmod,
        .flistxattr = ::flistxattr,
        .fgetxattr = ::fgetxattr,
        .fsetxattr = ::fsetxattr,
        .fremovexattr = ::fremovexattr,
        .linkat = ::linkat,
        .renameat2 = ::renameat2,
        .unlinkat = ::unlinkat,
        .flock = ::flock,
        .clock_gettime = ::clock_gettime,
        .nanosleep = ::nanosleep,
        .close = ::close,
    };
    return calls;
}

}  // namespace fl::filesystem
