#include "tests/support/WatchedSystem.hpp"

#include <linux/fs.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <utility>

#include "tests/support/TemporaryDirectory.hpp"

namespace test_support {

namespace {

using fl::filesystem::SystemCalls;

WatchedSystem* current = nullptr;

int refuse(int error) {
    errno = error;
    return -1;
}

std::string contentOf(int file) {
    // Not watched, because a file stream does the reading.
    WatchedSystem* const watching = std::exchange(current, nullptr);
    std::string content = readFile("/proc/self/fd/" + std::to_string(file));
    current = watching;
    return content;
}

// The arguments of a call that say which files it is about.
struct Arguments {
    std::vector<int> numbers;  // descriptors, then flags
    std::vector<const char*> names;

    void add(int number) { numbers.push_back(number); }
    void add(const char* name) { names.push_back(name); }
    template <class Other>
    void add(Other) {}
};

Call describe(std::string_view name, ssize_t result, const Arguments& arguments) {
    Call call{.name = name, .succeeded = result >= 0};
    for (const std::string_view given : arguments.names)
        call.names.emplace_back(given.substr(given.rfind('/') + 1));
    if (name == "close") return call;
    if (name == "flock" && arguments.numbers.back() == LOCK_UN) call.name = "unlock";
    struct stat found {};
    int file = arguments.numbers.front();
    if (name == "openat") {
        file = static_cast<int>(result);
        constexpr int kCreates = O_CREAT | (O_TMPFILE & ~O_DIRECTORY);
        call.isCreation = (arguments.numbers.back() & kCreates) != 0;
    }
    if (name == "copy_file_range") file = arguments.numbers.back();
    if (name == "linkat" || name == "renameat2") {
        ::fstatat(arguments.numbers[1], arguments.names[1], &found, AT_SYMLINK_NOFOLLOW);
    } else {
        ::fstat(file, &found);
    }
    call.inode = found.st_ino;
    call.isOnDirectory = S_ISDIR(found.st_mode);
    if (call.writes() && call.succeeded) call.content = contentOf(file);
    return call;
}

void halve(std::size_t& size) {
    size = (size + 1) / 2;
}
template <class Other>
void halve(Other&) {}

// Held during each call, of whatever kind.
std::mutex oneAtATime;

// Makes a call with the fault that is due, if any, and logs it. `really` makes the real call.
template <class Really, class... Each>
ssize_t watched(std::string_view name, Really really, Each&... arguments) {
    const std::lock_guard lock(oneAtATime);
    const Fault* const fault = current->begin(name);
    const auto is = [&](Fault::Kind kind) { return fault != nullptr && fault->kind == kind; };
    Arguments described;
    (described.add(arguments), ...);
    if (is(Fault::Kind::IsShort)) (halve(arguments), ...);
    // Linux releases the descriptor even if close() fails.
    const bool isMade =
        name == "close" || !(is(Fault::Kind::Fails) || is(Fault::Kind::MovesNothing));
    ssize_t result = isMade ? really() : 0;
    if (is(Fault::Kind::Fails)) result = refuse(fault->error);
    const int error = errno;
    current->log(describe(name, result, described));
    if (is(Fault::Kind::Follows)) current->interfere();
    errno = error;
    return result;
}

template <auto Entry>
struct Watched;
template <class Result, class... Given, Result (*SystemCalls::*Entry)(Given...)>
struct Watched<Entry> {
    static inline std::string_view name;

    static Result call(Given... given) {
        const auto really = [&] { return (current->real().*Entry)(given...); };
        return static_cast<Result>(watched(name, really, given...));
    }
};

template <auto Entry>
void watch(std::string_view name) {
    Watched<Entry>::name = name;
    fl::filesystem::systemCalls().*Entry = Watched<Entry>::call;
}

void watchAll() {
    watch<&SystemCalls::openat>("openat");
    watch<&SystemCalls::fstat>("fstat");
    watch<&SystemCalls::fstatat>("fstatat");
    watch<&SystemCalls::faccessat>("faccessat");
    watch<&SystemCalls::readlinkat>("readlinkat");
    watch<&SystemCalls::pread>("pread");
    watch<&SystemCalls::pwrite>("pwrite");
    watch<&SystemCalls::copy_file_range>("copy_file_range");
    watch<&SystemCalls::cloneRange>("cloneRange");
    watch<&SystemCalls::sync_file_range>("sync_file_range");
    watch<&SystemCalls::ftruncate>("ftruncate");
    watch<&SystemCalls::fsync>("fsync");
    watch<&SystemCalls::fchown>("fchown");
    watch<&SystemCalls::fchmod>("fchmod");
    watch<&SystemCalls::flistxattr>("flistxattr");
    watch<&SystemCalls::fgetxattr>("fgetxattr");
    watch<&SystemCalls::fsetxattr>("fsetxattr");
    watch<&SystemCalls::fremovexattr>("fremovexattr");
    watch<&SystemCalls::linkat>("linkat");
    watch<&SystemCalls::renameat2>("renameat2");
    watch<&SystemCalls::unlinkat>("unlinkat");
    watch<&SystemCalls::flock>("flock");
    watch<&SystemCalls::close>("close");
}

// Copies the blocks instead of sharing them, which the caller cannot see.
int cloneByCopying(int target, const file_clone_range* range) {
    if ((range->src_offset | range->src_length | range->dest_offset) % (64 << 10) != 0)
        return refuse(EINVAL);  // as a file system with larger blocks does
    std::string bytes(range->src_length, '\0');
    const auto source = static_cast<int>(range->src_fd);
    const auto size = static_cast<ssize_t>(bytes.size());
    if (::pread(source, bytes.data(), bytes.size(), static_cast<off_t>(range->src_offset)) != size)
        return refuse(EINVAL);
    const auto offset = static_cast<off_t>(range->dest_offset);
    return ::pwrite(target, bytes.data(), bytes.size(), offset) == size ? 0 : refuse(ENOSPC);
}

void makeOlder(SystemCalls& calls) {
    calls.openat = [](int directory, const char* name, int flags, mode_t mode) {
        if ((flags & O_TMPFILE) == O_TMPFILE) return refuse(EOPNOTSUPP);
        return ::openat(directory, name, flags, mode);
    };
    calls.renameat2 = [](int from, const char* name, int to, const char* newName, unsigned flags) {
        return flags == 0 ? ::renameat(from, name, to, newName) : refuse(EINVAL);
    };
    calls.copy_file_range = [](int, off_t*, int, off_t*, size_t, unsigned) -> ssize_t {
        return refuse(EXDEV);
    };
    calls.cloneRange = [](int, const file_clone_range*) { return refuse(EOPNOTSUPP); };
}

// A clock that sleeping advances at once.
std::chrono::nanoseconds slept{};

void passTimeAtOnce(SystemCalls& calls) {
    calls.nanosleep = [](const timespec* time, timespec*) {
        slept += std::chrono::seconds(time->tv_sec) + std::chrono::nanoseconds(time->tv_nsec);
        return 0;
    };
    calls.clock_gettime = [](clockid_t, timespec* time) {
        time->tv_sec = slept / std::chrono::seconds(1);
        time->tv_nsec = (slept % std::chrono::seconds(1)).count();
        return 0;
    };
}

void makeLinkless(SystemCalls& calls) {
    makeOlder(calls);
    calls.flock = [](int, int) { return refuse(EOPNOTSUPP); };
    calls.linkat = [](int, const char*, int, const char*, int) { return refuse(EPERM); };
}

}  // namespace

WatchedSystem::WatchedSystem(FileSystem fileSystem)
    : saved_(fl::filesystem::systemCalls()), real_(saved_) {
    real_.fsync = [](int) { return 0; };
    passTimeAtOnce(real_);
    passTimeAtOnce(fl::filesystem::systemCalls());
    if (fileSystem == FileSystem::Sharing) real_.cloneRange = cloneByCopying;
    if (fileSystem == FileSystem::Older) makeOlder(real_);
    if (fileSystem == FileSystem::Linkless) makeLinkless(real_);
    watchAll();
    current = this;
}

WatchedSystem::~WatchedSystem() {
    current = nullptr;
    fl::filesystem::systemCalls() = saved_;
}

void WatchedSystem::strike(std::size_t number, const Fault& fault,
                           std::function<void()> interfere) {
    number_ = number;
    fault_ = fault;
    interfere_ = std::move(interfere);
}

const Call* WatchedSystem::struck() const noexcept {
    return number_ > 0 && calls_.size() >= number_ ? &calls_[number_ - 1] : nullptr;
}

const Fault* WatchedSystem::begin(std::string_view call) {
    if (calls_.size() + 1 != number_ || !fault_.canStrike(call)) return nullptr;
    if (fault_.kind == Fault::Kind::Kills) ::kill(::getpid(), fault_.error);
    if (fault_.kind == Fault::Kind::Interferes) interfere();
    return &fault_;
}

// The calls that the given function makes are not watched.
void WatchedSystem::interfere() {
    const auto watching = std::exchange(fl::filesystem::systemCalls(), real_);
    current = nullptr;
    interfere_();
    current = this;
    fl::filesystem::systemCalls() = watching;
}

void Disk::add(const std::string& name, ino_t inode, const std::string& content) {
    names_[name] = durableNames_[name] = inode;
    contents_[inode] = durableContents_[inode] = content;
}

void Disk::apply(const Call& call) {
    if (!call.succeeded) return;
    if (call.name == "fchown" || call.name == "fchmod" || call.name == "fsetxattr" ||
        call.name == "fremovexattr") {
        durableContents_.erase(call.inode);  // without its attributes a file is not whole
    } else if (call.writes()) {
        contents_[call.inode] = call.content;
    } else if (call.isCreation) {
        contents_[call.inode] = "";
        durableContents_.erase(call.inode);  // the inode number may be that of a removed file
        // An unnamed file is opened by the name ".".
        if (call.names.front() != ".") names_[call.names.front()] = call.inode;
    } else if (call.name == "linkat" || call.name == "renameat2") {
        if (call.name == "renameat2") names_.erase(call.names.front());
        names_[call.names.back()] = call.inode;
    } else if (call.name == "unlinkat") {
        names_.erase(call.names.front());
    } else if (call.name == "fsync" && call.isOnDirectory) {
        durableNames_ = names_;
    } else if (call.name == "fsync") {
        durableContents_[call.inode] = contents_[call.inode];
    }
}

std::string Disk::find(const Names& names, const Contents& contents, const std::string& name) {
    const auto found = names.find(name);
    if (found == names.end()) return kNothing;
    const auto content = contents.find(found->second);
    return content == contents.end() ? "" : content->second;
}

std::string Disk::content(const std::string& name) const {
    return find(names_, contents_, name);
}

std::set<std::string> Disk::contentsAfterPowerLoss(const std::string& name) const {
    std::set<std::string> found;
    for (const Names* names : {&names_, &durableNames_}) {
        for (const Contents* contents : {&contents_, &durableContents_})
            found.insert(find(*names, *contents, name));
    }
    return found;
}

// Handles a read or write of a file stream. Standard input and output are left alone.
template <class... Each>
ssize_t streamed(std::string_view name, long number, int file, Each... arguments) {
    const auto really = [&] { return ::syscall(number, file, arguments...); };
    const bool isWatched = current != nullptr && file > STDERR_FILENO;
    return isWatched ? watched(name, really, file, arguments...) : really();
}

}  // namespace test_support

using test_support::streamed;

// The file streams of the C++ library call these functions, because the program's definitions
// precede those of the C library.
#define EXPORTED __attribute__((visibility("default")))
extern "C" EXPORTED ssize_t read(int file, void* buffer, std::size_t size) {
    return streamed("read", SYS_read, file, buffer, size);
}
extern "C" EXPORTED ssize_t write(int file, const void* buffer, std::size_t size) {
    return streamed("write", SYS_write, file, buffer, size);
}
extern "C" EXPORTED ssize_t writev(int file, const iovec* parts, int count) {
    return streamed("writev", SYS_writev, file, parts, count);
}
