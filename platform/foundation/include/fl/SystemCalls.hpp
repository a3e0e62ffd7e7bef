#pragma once

#include <foundation/Export.hpp>

#include <sys/stat.h>
#include <sys/types.h>

#include <ctime>

struct file_clone_range;  // of <linux/fs.h>

namespace fl::filesystem {

// The system calls through which this library reads and saves files, in a table so that tests can
// make any of them fail. Each entry has the signature, result and errno of the system call with its
// name unless stated otherwise. Code of this library calls the system about files only through
// systemCalls(), or no test can reach what it does when the call fails.
struct SystemCalls {
    int (*openat)(int directory, const char* name, int flags, mode_t mode);
    int (*fstat)(int file, struct stat* result);
    int (*fstatat)(int directory, const char* name, struct stat* result, int flags);
    int (*faccessat)(int directory, const char* name, int mode, int flags);
    ssize_t (*readlinkat)(int directory, const char* name, char* target, size_t size);
    ssize_t (*read)(int file, void* buffer, size_t size);
    ssize_t (*pread)(int file, void* buffer, size_t size, off_t offset);
    ssize_t (*pwrite)(int file, const void* buffer, size_t size, off_t offset);
    ssize_t (*copy_file_range)(int source, off_t* sourceOffset, int target, off_t* targetOffset,
                               size_t size, unsigned flags);
    // The request FICLONERANGE of ioctl().
    int (*cloneRange)(int target, const file_clone_range* range);
    int (*sync_file_range)(int file, off_t offset, off_t size, unsigned flags);
    int (*ftruncate)(int file, off_t size);
    int (*fsync)(int file);
    int (*fchown)(int file, uid_t owner, gid_t group);
    int (*fchmod)(int file, mode_t mode);
    ssize_t (*flistxattr)(int file, char* names, size_t size);
    ssize_t (*fgetxattr)(int file, const char* name, void* value, size_t size);
    int (*fsetxattr)(int file, const char* name, const void* value, size_t size, int flags);
    int (*fremovexattr)(int file, const char* name);
    int (*linkat)(int sourceDirectory, const char* source, int directory, const char* name,
                  int flags);
    int (*renameat2)(int sourceDirectory, const char* source, int directory, const char* name,
                     unsigned flags);
    int (*unlinkat)(int directory, const char* name, int flags);
    int (*flock)(int file, int operation);
    // These two serve waiting for a lock, so that a test of the wait does not take its time.
    int (*clock_gettime)(clockid_t clock, struct timespec* time);
    int (*nanosleep)(const struct timespec* time, struct timespec* remaining);
    int (*close)(int file);
};

// The table in use, which holds the system's own functions unless a test has replaced entries. Do
// not change it while other threads use files. It lives as long as the process.
PLATFORM_API SystemCalls& systemCalls() noexcept;

}  // namespace fl::filesystem
