#include "app/PrivateFolder.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <fl/Retry.hpp>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
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

// What the handler may touch: it takes no lock and allocates nothing. A slot is filled before it is
// InUse and free before it is filled again, whatever the order in which folders come and go.
struct Slot {
    enum class State { Free, Taken, InUse };
    std::atomic<State> state = State::Free;
    int parent = -1;
    int folder = -1;
    std::array<char, NAME_MAX + 1> name{};
};
static_assert(std::atomic<Slot::State>::is_always_lock_free);
constinit std::array<Slot, 16> slots{};

// The system's own form of a directory entry.
struct Entry {
    ino64_t inode;
    off64_t next;
    unsigned short size;
    unsigned char type;
    char name[1];  // as long as it is, with a zero at its end
};

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// How often directories may be read to remove one private folder. Each folder in it takes four reads, two
// in each of two rounds, so this is far more than the tool's own folders need. Without a limit, a program
// that keeps making files there would keep this process from its end.
constexpr int kMaxReads = 1000;

bool removeTree(int parent, const char* name, int depth, int& readsLeft) noexcept;

// Of the folder that is open as `folder`. Calls of the system alone, as a signal handler must.
void empty(int folder, int depth, int& readsLeft) noexcept {
    alignas(Entry) std::array<char, 1024> entries;
    // Once more from the start when something was removed, since the order may have changed by that.
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
    throw std::length_error("too many files in the making");
}

// Whether the name leads to this folder still.
bool isThere(const FileDescriptor& parent, const std::string& name,
             const FileDescriptor& folder) noexcept {
    struct stat named {};
    struct stat own {};
    return ::fstatat(parent.get(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           ::fstat(folder.get(), &own) == 0 && named.st_dev == own.st_dev &&
           named.st_ino == own.st_ino;
}

// By its whole path, where the system tells it.
void reportLeft(const FileDescriptor& folder, const std::string& name) noexcept {
    try {
        std::error_code ignored;
        const auto path =
            std::filesystem::read_symlink(fmt::format("/proc/self/fd/{}", folder.get()), ignored);
        warn(fmt::format("{}: this folder for temporary files cannot be removed; remove it",
                         path.empty() ? name : path.string()));
    } catch (const std::exception&) {
        // There is no memory left to say it.
    }
}

std::string randomName() {
    std::random_device random;
    return fmt::format(".qzapp-{}-{:08x}", ::getpid(), random());
}

std::string makeFolder(const FileDescriptor& parent, mode_t mode) {
    for (int tries = 0; tries < kMaxNameTries; ++tries) {
        std::string name = randomName();
        if (::mkdirat(parent.get(), name.c_str(), mode) == 0) return name;
        if (errno != EEXIST) break;
    }
    throwSystemError(errno, "no file can be made in its directory");
}

}  // namespace

void removePrivateFolders() noexcept {
    for (const Slot& slot : slots) {
        if (slot.state.load() == Slot::State::InUse) remove(slot);
    }
}

FileDescriptor openFolder(const FileDescriptor& parent, const std::string& name) {
    FileDescriptor folder(fl::filesystem::retryInterrupted(
        [&] { return ::openat(parent.get(), name.c_str(), kOpenFolder); }));
    if (!folder) throwSystemError(errno, "cannot open the folder \"" + name + "\"");
    return folder;
}

PrivateFolder::PrivateFolder(const FileDescriptor& parent, mode_t mode)
    : parent_(parent), slot_(takeSlot()) {
    // A signal comes before there is a folder, or finds it in the list.
    const SignalsBlocked blocked;
    Slot& slot = slots[slot_];
    try {
        name_ = makeFolder(parent, mode);
        folder_ = openFolder(parent, name_);
        // Whoever may rename here could have put another one in its place before it was opened, and
        // all that is in it would be deleted.
        if (!isEmpty(folder_.get())) {
            throwSystemError(EEXIST,
                             "another program put a folder in the place of a new one; try "
                             "again");
        }
    } catch (...) {
        if (!name_.empty()) ::unlinkat(parent.get(), name_.c_str(), AT_REMOVEDIR);
        slot.state.store(Slot::State::Free);
        throw;
    }
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

void PrivateFolder::release() noexcept {
    slots[slot_].state.store(Slot::State::Taken);
}

}  // namespace qzapp
