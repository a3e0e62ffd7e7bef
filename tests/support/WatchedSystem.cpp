#include "tests/support/WatchedSystem.hpp"

#include <signal.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <stdexcept>
#include <tuple>
#include <type_traits>
#include <utility>

namespace test_support {

namespace {

using fl::filesystem::SystemCalls;

WatchedSystem* current = nullptr;

// Whether two entries, of whatever types, are the same.
template <auto One, auto Other>
constexpr bool kIs = std::is_same_v<std::integral_constant<decltype(One), One>,
                                    std::integral_constant<decltype(Other), Other>>;

// Which argument of a transfer is its size, counted from 0; none of another call.
template <auto Entry>
constexpr std::size_t kSizeArgument = 0;
template <>
constexpr std::size_t kSizeArgument<&SystemCalls::pread> = 2;
template <>
constexpr std::size_t kSizeArgument<&SystemCalls::pwrite> = 2;
template <>
constexpr std::size_t kSizeArgument<&SystemCalls::copy_file_range> = 4;

template <auto Entry>
constexpr bool kWrites =
    kIs<Entry, &SystemCalls::pwrite> || kIs<Entry, &SystemCalls::copy_file_range> ||
    kIs<Entry, &SystemCalls::ftruncate>;

std::string contentOf(int file) {
    std::string content;
    char buffer[4096];
    while (const ssize_t got =
               ::pread(file, buffer, sizeof buffer, static_cast<off_t>(content.size()))) {
        if (got < 0) throw std::runtime_error("a file that was written cannot be read back");
        content.append(buffer, static_cast<std::size_t>(got));
    }
    return content;
}

// Which of the arguments are names and which the file.
void note(Call& call, const char* name) {
    const std::string_view given(name);
    call.names.emplace_back(given.substr(given.rfind('/') + 1));
}
template <class Other>
void note(Call&, Other) {}

template <auto Entry, class Result, class Arguments>
Call describe(const char* name, Result result, const Arguments& arguments) {
    Call call{.name = name, .succeeded = result >= 0};
    std::apply([&](auto... each) { (note(call, each), ...); }, arguments);
    if (kIs<Entry, &SystemCalls::close>) return call;
    struct stat found {};
    int file = std::get<0>(arguments);
    if constexpr (kIs<Entry, &SystemCalls::openat>) {
        file = result;
        constexpr int kCreates = O_CREAT | (O_TMPFILE & ~O_DIRECTORY);
        call.isCreation = (std::get<2>(arguments) & kCreates) != 0;
    }
    if constexpr (kIs<Entry, &SystemCalls::copy_file_range>) file = std::get<2>(arguments);
    if constexpr (kIs<Entry, &SystemCalls::linkat> || kIs<Entry, &SystemCalls::renameat2>) {
        ::fstatat(std::get<2>(arguments), std::get<3>(arguments), &found, AT_SYMLINK_NOFOLLOW);
    } else {
        ::fstat(file, &found);
    }
    call.inode = found.st_ino;
    call.isOnDirectory = S_ISDIR(found.st_mode);
    if (kWrites<Entry> && call.succeeded) call.content = contentOf(file);
    return call;
}

template <auto Entry>
struct Watched;
template <class Result, class... Arguments, Result (*SystemCalls::*Entry)(Arguments...)>
struct Watched<Entry> {
    static inline const char* name = "";

    static Result call(Arguments... given) {
        std::tuple<Arguments...> arguments(given...);
        const Fault* const fault = current->begin();
        const Result result = fault ? faulty(*fault, arguments) : really(arguments);
        const int error = errno;
        current->log(describe<Entry>(name, result, arguments));
        errno = error;
        return result;
    }

    static Result faulty(const Fault& fault, std::tuple<Arguments...>& arguments) {
        if (fault.kind == Fault::Kind::Fails) {
            // As the system does: the descriptor is gone all the same.
            if constexpr (kIs<Entry, &SystemCalls::close>) really(arguments);
            errno = fault.error;
            return -1;
        }
        if constexpr (kSizeArgument<Entry> != 0) {
            auto& size = std::get<kSizeArgument<Entry>>(arguments);
            if (fault.kind == Fault::Kind::MovesNothing) return 0;
            if (fault.kind == Fault::Kind::IsShort) size = (size + 1) / 2;
        }
        return really(arguments);
    }

    static Result really(const std::tuple<Arguments...>& arguments) {
        return std::apply(current->real().*Entry, arguments);
    }
};

template <auto Entry>
void watch(const char* name) {
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
    watch<&SystemCalls::close>("close");
}

int refuse(int error) {
    errno = error;
    return -1;
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
}

void makeLinkless(SystemCalls& calls) {
    makeOlder(calls);
    calls.linkat = [](int, const char*, int, const char*, int) { return refuse(EPERM); };
}

}  // namespace

WatchedSystem::WatchedSystem(FileSystem fileSystem)
    : saved_(fl::filesystem::systemCalls()), real_(saved_) {
    real_.fsync = [](int) { return 0; };
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

const Fault* WatchedSystem::begin() {
    if (calls_.size() + 1 != number_) return nullptr;
    if (fault_.kind == Fault::Kind::Kills) ::kill(::getpid(), SIGKILL);
    if (fault_.kind == Fault::Kind::Interferes) {
        current = nullptr;  // what others do is not watched
        interfere_();
        current = this;
    }
    return &fault_;
}

void Disk::add(const std::string& name, ino_t inode, const std::string& content) {
    names_[name] = durableNames_[name] = inode;
    contents_[inode] = durableContents_[inode] = content;
}

void Disk::apply(const Call& call) {
    if (!call.succeeded) return;
    if (call.name == "fchown" || call.name == "fchmod" || call.name == "fsetxattr" ||
        call.name == "fremovexattr") {
        durableContents_.erase(call.inode);  // a whole file is one with its attributes, too
    } else if (call.name == "pwrite" || call.name == "copy_file_range" ||
               call.name == "ftruncate") {
        contents_[call.inode] = call.content;
    } else if (call.isCreation) {
        contents_[call.inode] = "";
        durableContents_.erase(call.inode);  // of a file that is gone
        // A file without a name is opened as ".".
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

namespace {

// Reading and writing of the standard file streams. The standard ones of the process are not files.
template <class Real>
ssize_t watchedStream(const char* name, int file, std::size_t& size, Real real) {
    if (current == nullptr || file <= STDERR_FILENO) return real();
    const Fault* const fault = current->begin();
    ssize_t result = 0;
    if (fault != nullptr && fault->kind == Fault::Kind::Fails) {
        result = refuse(fault->error);
    } else {
        if (fault != nullptr && fault->kind == Fault::Kind::IsShort) size = (size + 1) / 2;
        result = real();
    }
    const int error = errno;
    current->log({.name = name, .succeeded = result >= 0});
    errno = error;
    return result;
}

}  // namespace

}  // namespace test_support

// The standard library's file streams call these of the program before those of the system.
#define EXPORTED __attribute__((visibility("default")))
extern "C" EXPORTED ssize_t read(int file, void* buffer, std::size_t size) {
    return test_support::watchedStream("read", file, size,
                                       [&] { return ::syscall(SYS_read, file, buffer, size); });
}
extern "C" EXPORTED ssize_t write(int file, const void* buffer, std::size_t size) {
    return test_support::watchedStream("write", file, size,
                                       [&] { return ::syscall(SYS_write, file, buffer, size); });
}
extern "C" EXPORTED ssize_t writev(int file, const iovec* parts, int count) {
    std::size_t ignored = 0;
    return test_support::watchedStream("writev", file, ignored,
                                       [&] { return ::syscall(SYS_writev, file, parts, count); });
}
