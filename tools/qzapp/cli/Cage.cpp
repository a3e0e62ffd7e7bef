#include "tools/qzapp/cli/Cage.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <fl/Retry.hpp>

#include <algorithm>
#include <cerrno>
#include <fstream>

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;
using fl::filesystem::retryInterrupted;
using fl::filesystem::throwSystemError;

// The kernel's interface. It is spelled out here because the installed header is often older than
// the kernel; later versions only add to it.

// Rights to files and folders.
constexpr std::uint64_t kWriteFile = 1 << 1;
constexpr std::uint64_t kReadFile = 1 << 2;
constexpr std::uint64_t kReadFolder = 1 << 3;
constexpr std::uint64_t kRemoveFolder = 1 << 4;
constexpr std::uint64_t kRemoveFile = 1 << 5;
constexpr std::uint64_t kMakeFolder = 1 << 7;
constexpr std::uint64_t kMakeFile = 1 << 8;
constexpr std::uint64_t kFirstRights = (1 << 13) - 1;  // those of version 1
constexpr std::uint64_t kMoveElsewhere = 1 << 13;      // from one folder to another
constexpr std::uint64_t kTruncate = 1 << 14;
constexpr std::uint64_t kControlDevice = 1 << 15;
// Rights to TCP.
constexpr std::uint64_t kBind = 1 << 0;
constexpr std::uint64_t kConnect = 1 << 1;
// Ways to processes outside the cage.
constexpr std::uint64_t kAbstractSocket = 1 << 0;
constexpr std::uint64_t kSignal = 1 << 1;

// The first version that can forbid each of them. Older ones always allow it, except that version 1
// always forbids moving a file to another folder.
constexpr int kWithMoving = 2;
constexpr int kWithTruncation = 3;
constexpr int kWithTcp = 4;
constexpr int kWithDevices = 5;
constexpr int kWithScopes = 6;

struct Forbidden {
    std::uint64_t files, network, scopes;
};

struct Rule {
    std::uint64_t rights;
    std::int32_t file;
} __attribute__((packed));

constexpr unsigned kAskVersion = 1;
constexpr int kRuleOfFile = 1;

// 0 if the kernel has no Landlock, was booted without it, or runs a container that forbids the
// call.
int kernelVersion() {
    const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, kAskVersion);
    return version < 0 ? 0 : static_cast<int>(version);
}

Forbidden forbiddenIn(int version) {
    Forbidden all{kFirstRights, 0, 0};
    if (version >= kWithMoving) all.files |= kMoveElsewhere;
    if (version >= kWithTruncation) all.files |= kTruncate;
    if (version >= kWithDevices) all.files |= kControlDevice;
    if (version >= kWithTcp) all.network = kBind | kConnect;
    if (version >= kWithScopes) all.scopes = kAbstractSocket | kSignal;
    return all;
}

[[noreturn]] void throwNotConfined() {
    throwSystemError(errno, "cannot confine this process to the named files");
}

FileDescriptor find(const std::string& name) {
    return FileDescriptor(
        retryInterrupted([&] { return ::open(name.c_str(), O_PATH | O_CLOEXEC); }));
}

bool isFolder(const FileDescriptor& file) {
    struct stat status {};
    return ::fstat(file.get(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

Cage::Cage() : version_(kernelVersion()) {
    if (version_ == 0) return;
    const Forbidden forbidden = forbiddenIn(version_);
    rules_ = FileDescriptor(
        static_cast<int>(::syscall(SYS_landlock_create_ruleset, &forbidden, sizeof forbidden, 0)));
    if (!rules_) throwNotConfined();
}

void Cage::allow(int file, std::uint64_t rights) {
    if (!rules_) return;
    const Rule rule{rights & forbiddenIn(version_).files, file};
    // EBADFD: pipes and files in memory need no rule.
    if (::syscall(SYS_landlock_add_rule, rules_.get(), kRuleOfFile, &rule, 0) != 0 &&
        errno != EBADFD) {
        throwNotConfined();
    }
}

void Cage::mayRead(const std::string& name) {
    const FileDescriptor found = find(name);
    if (found) allow(found.get(), isFolder(found) ? kReadFile | kReadFolder : kReadFile);
}

void Cage::mayChange(const FileDescriptor& folder) {
    // Version 1 forbids some of this whatever the rule says. Then it is better not to be confined.
    if (version_ < kWithMoving) rules_ = {};
    allow(folder.get(), kReadFile | kReadFolder | kWriteFile | kTruncate | kMakeFile | kMakeFolder |
                            kRemoveFile | kRemoveFolder | kMoveElsewhere);
}

void Cage::mayRenameFoldersIn(const FileDescriptor& folder) {
    allow(folder.get(), kMakeFolder | kRemoveFolder);
}

void Cage::enter() {
    // std::random_device reads it if the processor and the C library have no random numbers.
    mayRead("/dev/urandom");
    // The progress bar reads from there how much has been read, and sanitizers list the threads. It
    // stays open on purpose: the kernel could otherwise forget the folder, and the rule with it.
    if (const int self = ::open("/proc/self", O_PATH | O_CLOEXEC); self >= 0)
        allow(self, kReadFile | kReadFolder);
#ifdef QZAPP_PROFILES
    if (const FileDescriptor profiles = find(QZAPP_PROFILES)) mayChange(profiles);
#endif
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) throwNotConfined();
    if (!rules_) return;
    // E2BIG: this process is in as many cages already as the kernel allows.
    if (::syscall(SYS_landlock_restrict_self, rules_.get(), 0) != 0 && errno != E2BIG)
        throwNotConfined();
    rules_ = {};
}

std::string describeConfinement() {
    const int version = kernelVersion();
    if (version == 0) return "Verbs that read are not confined: this kernel has no Landlock";
    std::string what = "files";
    if (version < kWithMoving) what += " (but not where files are written)";
    if (version >= kWithTcp) what += ", TCP";
    if (version >= kWithScopes) what += ", signals";
    return fmt::format("Verbs that read are confined by this kernel: {} (Landlock {})", what,
                       version);
}

void limitProcessorTime(std::chrono::seconds time) {
    rlimit limit{};
    if (::getrlimit(RLIMIT_CPU, &limit) != 0) return;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, static_cast<rlim_t>(time.count()));
    ::setrlimit(RLIMIT_CPU, &limit);
}

void limitMemory(std::uint64_t bytes) {
    std::ifstream pages("/proc/self/statm");
    std::uint64_t taken = 0;
    rlimit limit{};
    if (!(pages >> taken) || ::getrlimit(RLIMIT_AS, &limit) != 0) return;
    taken *= static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, taken + bytes);
    ::setrlimit(RLIMIT_AS, &limit);
}

}  // namespace qzapp
