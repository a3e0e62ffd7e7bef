#include "app/PrivateFolder.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>
#include <fl/ReplacementFile.hpp>
#include <fl/Retry.hpp>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "app/SignalsBlocked.hpp"
#include "app/Warnings.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;
using fl::filesystem::throwSystemError;

constexpr int kMaxNameTries = 100;

// One private folder, in the form that the signal handler can use: without locks or memory. The
// handler reads a slot only while its state is InUse; at other times its owner may write to it.
// Taken: owned, but not (or no longer) to be removed.
struct Slot {
    enum class State { Free, Taken, InUse };
    std::atomic<State> state = State::Free;
    pid_t owner = -1;  // a forked child must not remove its parent's folders
    int parent = -1;
    int folder = -1;
    std::array<char, NAME_MAX + 1> name{};
};
static_assert(std::atomic<Slot::State>::is_always_lock_free);
constinit std::array<Slot, 16> slots{};

// A directory entry as the getdents64 system call returns it; readdir() allocates, so a handler may
// not call it.
struct Entry {
    ino64_t inode;
    off64_t next;
    unsigned short size;
    unsigned char type;
    char name[1];  // in fact as many characters as the name has, then a zero
};

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// The most reads of directories that removing one private folder may take. A folder takes at least
// four (two rounds of two) and one more for each sixteen files or so; a gallery with a hundred
// thousand pictures takes some ten thousand. Without a limit, a program that keeps making files in
// there would keep this process from ending.
constexpr int kMaxReads = 50'000;

bool removeTree(int parent, const char* name, int depth, int& readsLeft) noexcept;

// Removes all that the open directory `folder` holds. Makes only system calls, because a signal
// handler calls it.
void empty(int folder, int depth, int& readsLeft) noexcept {
    alignas(Entry) std::array<char, 1024> entries;
    // After a round that removed something, starts again: removing may have changed the order of
    // the entries, so some may have been passed over.
    for (bool goesOn = true; goesOn && readsLeft > 0;) {
        goesOn = false;
        ::lseek(folder, 0, SEEK_SET);
        long size = 0;
        while (readsLeft-- > 0 &&
               (size = ::syscall(SYS_getdents64, folder, entries.data(), entries.size())) > 0) {
            for (long at = 0; at < size;) {
                const auto* entry = reinterpret_cast<const Entry*>(entries.data() + at);
                at += entry->size;
                const std::string_view name(entry->name);
                if (name == "." || name == "..") continue;
                if (::unlinkat(folder, entry->name, 0) == 0 ||
                    (depth > 0 && removeTree(folder, entry->name, depth - 1, readsLeft)))
                    goesOn = true;
            }
        }
    }
}

bool removeTree(int parent, const char* name, int depth, int& readsLeft) noexcept {
    const int folder = ::openat(parent, name, kOpenFolder);
    if (folder < 0) return false;
    empty(folder, depth, readsLeft);
    ::close(folder);
    return ::unlinkat(parent, name, AT_REMOVEDIR) == 0;
}

void remove(const Slot& slot) noexcept {
    int readsLeft = kMaxReads;
    empty(slot.folder, kMaxNesting, readsLeft);
    ::unlinkat(slot.parent, slot.name.data(), AT_REMOVEDIR);
}

bool isEmpty(int folder) noexcept {
    alignas(Entry) std::array<char, 1024> entries;
    long size = 0;
    while ((size = ::syscall(SYS_getdents64, folder, entries.data(), entries.size())) > 0) {
        for (long at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const Entry*>(entries.data() + at);
            at += entry->size;
            const std::string_view name(entry->name);
            if (name != "." && name != "..") return false;
        }
    }
    return size == 0;
}

std::size_t takeSlot() {
    for (std::size_t i = 0; i < slots.size(); ++i) {
        auto free = Slot::State::Free;
        if (slots[i].state.compare_exchange_strong(free, Slot::State::Taken)) return i;
    }
    throw std::length_error("too many files are being made at once");
}

// Whether the name still leads to this folder.
bool isThere(const FileDescriptor& parent, const std::string& name,
             const FileDescriptor& folder) noexcept {
    struct stat named {};
    struct stat own {};
    return ::fstatat(parent.get(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           ::fstat(folder.get(), &own) == 0 && named.st_dev == own.st_dev &&
           named.st_ino == own.st_ino;
}

[[noreturn]] void throwExchanged() {
    throwSystemError(EEXIST, "another program put a folder in the place of a new one; try again");
}

// Names the folder by its absolute path if /proc gives one.
void reportLeft(const FileDescriptor& folder, const std::string& name) noexcept {
    try {
        std::error_code ignored;
        const auto path =
            std::filesystem::read_symlink(fmt::format("/proc/self/fd/{}", folder.get()), ignored);
        warn(fmt::format("{}: this folder for temporary files cannot be removed; remove it",
                         path.empty() ? name : path.string()));
    } catch (const std::exception&) {
        // There is no memory left for the warning.
    }
}

std::string randomName() {
    std::random_device random;
    return fmt::format(".qzapp-{}-{:08x}", ::getpid(), random());
}

struct stat statusOf(const FileDescriptor& file) {
    struct stat status {};
    if (::fstat(file.get(), &status) < 0) throwSystemError(errno, "cannot stat");
    return status;
}

// What the system makes of a new file in `parent` on which nobody is to have any rights. It tells
// file systems that give all files one owner or one mode.
struct stat statusOfNewFile(const FileDescriptor& parent) {
    const std::string name = randomName();
    const FileDescriptor file(fl::filesystem::retryInterrupted([&] {
        return ::openat(parent.get(), name.c_str(),
                        O_RDONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0);
    }));
    if (!file) throwSystemError(errno, fl::filesystem::kCannotCreateFile);
    ::unlinkat(parent.get(), name.c_str(), 0);
    return statusOf(file);
}

constexpr mode_t kAllRights = 0777;

// Whether the folder, which this process has just made in `parent` with this mode, can be the one
// that is open: another user cannot make one with this owner, nor the owner's own older folders be
// used if others have rights on them.
bool canBeOwn(const FileDescriptor& parent, const FileDescriptor& folder, mode_t mode) {
    const struct stat found = statusOf(folder);
    const bool hasMode = (found.st_mode & kAllRights & ~mode) == 0;
    if (found.st_uid == ::geteuid() && hasMode) return true;
    const struct stat fresh = statusOfNewFile(parent);
    return found.st_uid == fresh.st_uid && (hasMode || (fresh.st_mode & kAllRights) != 0);
}

std::string makeFolder(const FileDescriptor& parent, mode_t mode) {
    for (int tries = 0; tries < kMaxNameTries; ++tries) {
        std::string name = randomName();
        if (::mkdirat(parent.get(), name.c_str(), mode) == 0) return name;
        if (errno != EEXIST) break;
    }
    throwSystemError(errno, fl::filesystem::kCannotCreateFile);
}

}  // namespace

void removePrivateFolders() noexcept {
    for (const Slot& slot : slots) {
        if (slot.state.load() == Slot::State::InUse && slot.owner == ::getpid()) remove(slot);
    }
}

FileDescriptor openNewFolder(const FileDescriptor& parent, const std::string& name, mode_t mode) {
    FileDescriptor folder(fl::filesystem::retryInterrupted(
        [&] { return ::openat(parent.get(), name.c_str(), kOpenFolder); }));
    if (!folder) throwSystemError(errno, "cannot open the folder \"" + name + "\"");
    if (!isEmpty(folder.get()) || !canBeOwn(parent, folder, mode)) {
        throwExchanged();
    }
    return folder;
}

PrivateFolder::PrivateFolder(const FileDescriptor& parent, mode_t mode)
    : parent_(parent), slot_(takeSlot()) {
    // So a signal is handled either before the folder exists or when it is in the list.
    const SignalsBlocked blocked;
    Slot& slot = slots[slot_];
    try {
        name_ = makeFolder(parent, mode);
        folder_ = openNewFolder(parent, name_, mode);
    } catch (...) {
        if (!name_.empty()) ::unlinkat(parent.get(), name_.c_str(), AT_REMOVEDIR);
        slot.state.store(Slot::State::Free);
        throw;
    }
    slot.owner = ::getpid();
    slot.parent = parent.get();
    slot.folder = folder_.get();
    slot.name[name_.copy(slot.name.data(), NAME_MAX)] = '\0';
    slot.state.store(Slot::State::InUse);
}

PrivateFolder::~PrivateFolder() {
    Slot& slot = slots[slot_];
    const bool mustGo = slot.state.load() == Slot::State::InUse;
    if (mustGo) remove(slot);
    slot.state.store(Slot::State::Free);
    if (mustGo && isThere(parent_, name_, folder_)) reportLeft(folder_, name_);
}

void PrivateFolder::requireAt(const std::string& name) const {
    if (!isThere(parent_, name, folder_)) throwExchanged();
}

void PrivateFolder::release() noexcept {
    slots[slot_].state.store(Slot::State::Taken);
}

}  // namespace qzapp
