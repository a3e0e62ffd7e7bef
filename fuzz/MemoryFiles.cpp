#include "fuzz/MemoryFiles.hpp"

#include <fl/SystemCalls.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/Fuzzing.hpp"

namespace fuzz::memory {

namespace {

constexpr std::string_view kDirectory = "/memory";
constexpr std::string_view kOpenFiles = "/proc/thread-self/fd/";
constexpr ino_t kInodeOfDirectory = 1;
constexpr int kDescriptors = 1 << 24;  // the first one, far above those of the system

struct File {
    std::string bytes;
    struct stat status {};
};
using FilePointer = std::shared_ptr<File>;

struct State {
    std::map<std::string, FilePointer, std::less<>> names;
    std::vector<FilePointer> open;  // by descriptor; null if that is free
    FilePointer directory;
    ino_t lastInode = kInodeOfDirectory;
    long changes = 0;  // counts changes, and stands for the time of a change
    fl::filesystem::SystemCalls system = fl::filesystem::systemCalls();
};

// The calls that were in place when the directory was made.
State& state() {
    static State all;
    return all;
}

FilePointer newFile(mode_t mode) {
    auto file = std::make_shared<File>();
    file->status.st_ino = ++state().lastInode;
    file->status.st_mode = mode;
    file->status.st_uid = ::geteuid();
    file->status.st_gid = ::getegid();
    return file;
}

void touch(File& file) {
    file.status.st_size = static_cast<off_t>(file.bytes.size());
    file.status.st_mtim.tv_nsec = ++state().changes;
}

template <class Result = int>
Result failed(int error) {
    errno = error;
    return -1;
}

// ---- Descriptors and names

bool isOurs(int descriptor) {
    return descriptor >= kDescriptors;
}

FilePointer& opened(int descriptor) {
    auto& open = state().open;
    const auto index = static_cast<std::size_t>(descriptor - kDescriptors);
    require(index < open.size() && open[index], "only what is open is used");
    return open[index];
}

int add(FilePointer file) {
    auto& open = state().open;
    const auto free = std::ranges::find(open, nullptr);
    const auto index = free - open.begin();
    if (free == open.end()) open.emplace_back();
    open[static_cast<std::size_t>(index)] = std::move(file);
    return kDescriptors + static_cast<int>(index);
}

// The name in this directory that a call means; empty for the directory itself, nullopt for a name
// that the system is to look up.
std::optional<std::string_view> nameHere(int start, std::string_view name) {
    if (name.starts_with('/')) {
        if (!name.starts_with(kDirectory)) return std::nullopt;
        name.remove_prefix(kDirectory.size());
        if (name.empty()) return name;
        if (name.front() != '/') return std::nullopt;
        name.remove_prefix(1);
        return name;
    }
    if (!isOurs(start)) return std::nullopt;
    return name == "." ? std::string_view() : name;
}

FilePointer find(std::string_view name) {
    if (name.empty()) return state().directory;
    const auto found = state().names.find(name);
    return found == state().names.end() ? nullptr : found->second;
}

// ---- The calls

int openAt(int start, const char* given, int flags, mode_t mode) {
    const auto name = nameHere(start, given);
    if (!name) return state().system.openat(start, given, flags, mode);
    if ((flags & O_TMPFILE) == O_TMPFILE) return add(newFile(S_IFREG | mode));
    FilePointer file = find(*name);
    if (!file && (flags & O_CREAT) == 0) return failed(ENOENT);
    if (file && (flags & O_EXCL) != 0) return failed(EEXIST);
    if (!file) {
        file = newFile(S_IFREG | mode);
        state().names.emplace(*name, file);
    }
    const bool isDirectory = file == state().directory;
    if (!isDirectory && (flags & O_DIRECTORY) != 0) return failed(ENOTDIR);
    return add(std::move(file));
}

int statusOf(const FilePointer& file, struct stat* result) {
    if (!file) return failed(ENOENT);
    *result = file->status;
    return 0;
}

int fstatOf(int file, struct stat* result) {
    if (!isOurs(file)) return state().system.fstat(file, result);
    return statusOf(opened(file), result);
}

// The descriptor whose entry in /proc has this name; -1 for another name.
int descriptorIn(std::string_view name) {
    int descriptor = -1;
    if (name.starts_with(kOpenFiles)) {
        name.remove_prefix(kOpenFiles.size());
        std::from_chars(name.data(), name.data() + name.size(), descriptor);
    }
    return descriptor;
}

int fstatAt(int start, const char* given, struct stat* result, int flags) {
    if (const int descriptor = descriptorIn(given); isOurs(descriptor)) {
        return statusOf(opened(descriptor), result);
    }
    const auto name = nameHere(start, given);
    if (!name) return state().system.fstatat(start, given, result, flags);
    return statusOf(find(*name), result);
}

int accessAt(int start, const char* given, int mode, int flags) {
    const auto name = nameHere(start, given);
    if (!name) return state().system.faccessat(start, given, mode, flags);
    return find(*name) ? 0 : failed(ENOENT);
}

ssize_t readAt(int descriptor, void* buffer, size_t size, off_t offset) {
    if (!isOurs(descriptor)) return state().system.pread(descriptor, buffer, size, offset);
    const std::string& bytes = opened(descriptor)->bytes;
    require(offset >= 0, "nothing is read in front of a file");
    const auto at = static_cast<std::size_t>(offset);
    if (at >= bytes.size()) return 0;
    const std::size_t count = std::min(size, bytes.size() - at);
    std::memcpy(buffer, bytes.data() + at, count);
    return static_cast<ssize_t>(count);
}

ssize_t writeAt(int descriptor, const void* buffer, size_t size, off_t offset) {
    if (!isOurs(descriptor)) return state().system.pwrite(descriptor, buffer, size, offset);
    File& file = *opened(descriptor);
    require(offset >= 0, "nothing is written in front of a file");
    const auto at = static_cast<std::size_t>(offset);
    if (at + size > file.bytes.size()) file.bytes.resize(at + size);
    std::memcpy(file.bytes.data() + at, buffer, size);
    touch(file);
    return static_cast<ssize_t>(size);
}

ssize_t copyRange(int source, off_t* from, int target, off_t* to, size_t size, unsigned flags) {
    if (!isOurs(source) && !isOurs(target))
        return state().system.copy_file_range(source, from, target, to, size, flags);
    require(isOurs(source) && isOurs(target),
            "the library copies from one file in memory to another");
    const std::string& bytes = opened(source)->bytes;
    const auto at = static_cast<std::size_t>(*from);
    if (at >= bytes.size()) return 0;
    const std::string copied = bytes.substr(at, size);
    return writeAt(target, copied.data(), copied.size(), *to);
}

int truncate(int descriptor, off_t size) {
    if (!isOurs(descriptor)) return state().system.ftruncate(descriptor, size);
    opened(descriptor)->bytes.resize(static_cast<std::size_t>(size));
    touch(*opened(descriptor));
    return 0;
}

int changeMode(int descriptor, mode_t mode) {
    if (!isOurs(descriptor)) return state().system.fchmod(descriptor, mode);
    opened(descriptor)->status.st_mode = S_IFREG | mode;
    return 0;
}

// Gives a name to an open file, which is the only kind of link that the library makes.
int linkAt(int sourceStart, const char* source, int start, const char* given, int flags) {
    const auto name = nameHere(start, given);
    if (!name) return state().system.linkat(sourceStart, source, start, given, flags);
    const int descriptor = descriptorIn(source);
    require(isOurs(descriptor), "the library links only files that are open");
    return state().names.emplace(*name, opened(descriptor)).second ? 0 : failed(EEXIST);
}

int renameAt(int sourceStart, const char* source, int start, const char* given, unsigned flags) {
    const auto from = nameHere(sourceStart, source);
    const auto to = nameHere(start, given);
    if (!from && !to) return state().system.renameat2(sourceStart, source, start, given, flags);
    require(from && to, "a file stays in the directory");
    const FilePointer file = find(*from);
    if (!file) return failed(ENOENT);
    constexpr unsigned kNoReplace = 1;  // RENAME_NOREPLACE
    if ((flags & kNoReplace) != 0 && find(*to)) return failed(EEXIST);
    state().names.erase(state().names.find(*from));
    state().names.insert_or_assign(std::string(*to), file);
    return 0;
}

int unlinkAt(int start, const char* given, int flags) {
    const auto name = nameHere(start, given);
    if (!name) return state().system.unlinkat(start, given, flags);
    const auto found = state().names.find(*name);
    if (found == state().names.end()) return failed(ENOENT);
    state().names.erase(found);
    return 0;
}

int closeFile(int descriptor) {
    if (!isOurs(descriptor)) return state().system.close(descriptor);
    opened(descriptor).reset();
    return 0;
}

// Answers calls that have nothing to do here: with 0, or with `error` if that is not 0.
template <auto member, int error, class Result, class... Arguments>
auto without(Result (*)(int, Arguments...)) {
    return +[](int descriptor, Arguments... arguments) -> Result {
        if (!isOurs(descriptor)) return (state().system.*member)(descriptor, arguments...);
        if (error == 0) return 0;
        return failed<Result>(error);
    };
}

void install() {
    using fl::filesystem::SystemCalls;
    SystemCalls& calls = fl::filesystem::systemCalls();
    calls.openat = openAt;
    calls.fstat = fstatOf;
    calls.fstatat = fstatAt;
    calls.faccessat = accessAt;
    calls.pread = readAt;
    calls.pwrite = writeAt;
    calls.copy_file_range = copyRange;
    calls.ftruncate = truncate;
    calls.fchmod = changeMode;
    calls.linkat = linkAt;
    calls.renameat2 = renameAt;
    calls.unlinkat = unlinkAt;
    calls.close = closeFile;
    calls.cloneRange = without<&SystemCalls::cloneRange, EOPNOTSUPP>(calls.cloneRange);
    calls.sync_file_range = without<&SystemCalls::sync_file_range, 0>(calls.sync_file_range);
    calls.fsync = without<&SystemCalls::fsync, 0>(calls.fsync);
    calls.fchown = without<&SystemCalls::fchown, 0>(calls.fchown);
    calls.flistxattr = without<&SystemCalls::flistxattr, 0>(calls.flistxattr);
    calls.flock = without<&SystemCalls::flock, 0>(calls.flock);
}

// The directory, which takes its place behind the calls when it is first asked for.
State& files() {
    static State& installed = [&]() -> State& {
        workspace();  // stops the clock, and sets up what all targets share
        state().directory = newFile(S_IFDIR | 0755);
        state().directory->status.st_ino = kInodeOfDirectory;
        install();
        return state();
    }();
    return installed;
}

}  // namespace

std::u16string name(const std::string& file) {
    files();
    const std::string path = std::string(kDirectory) + "/" + file;
    return {path.begin(), path.end()};
}

std::u16string write(const std::string& file, const std::string& bytes) {
    auto& names = files().names;
    const FilePointer made = newFile(S_IFREG | 0644);
    made->bytes = bytes;
    touch(*made);
    names.insert_or_assign(file, made);
    return name(file);
}

const std::string& bytes(const std::string& file) {
    const auto found = files().names.find(file);
    require(found != files().names.end(), "the file is there");
    return found->second->bytes;
}

std::size_t countFiles() {
    return files().names.size();
}

std::size_t countOpen() {
    const auto& open = files().open;
    return open.size() - static_cast<std::size_t>(std::ranges::count(open, nullptr));
}

}  // namespace fuzz::memory
