#include <fl/ReplacementFile.hpp>

#include <fl/FileAttributes.hpp>
#include <fl/Retry.hpp>
#include <fl/SystemCalls.hpp>
#include <fl/i18n.hpp>
#include <foundation/ProcessMark.hpp>
#include <foundation/Shown.hpp>

#include "platform/foundation/src/fl/SavePlace.hpp"
#include "platform/foundation/src/fl/TemporaryFile.hpp"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <system_error>
#include <utility>

namespace fl::filesystem {

namespace {

constexpr mode_t kPrivate = 0600;
constexpr mode_t kAsTheUmaskAllows = 0666;

path pathOf(const std::string& bytes) {
    try {
        return path::fromBytes(bytes);
    } catch (const i18n::ConversionError&) {
        throwSystemError(EILSEQ, "leads to a name that is not valid UTF-8");
    }
}

void syncFile(const FileDescriptor& file) {
    if (systemCalls().fsync(file.get()) < 0) throwSystemError(errno, "cannot make it durable");
}

[[noreturn]] void throwChanged() {
    throwSystemError(EBUSY, kChangedMeanwhile);
}

// The time by a clock that nobody can set.
std::chrono::nanoseconds timeOfClock() noexcept {
    struct timespec now {};
    systemCalls().clock_gettime(CLOCK_MONOTONIC, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

// Keeps other savers out between the last check of a file and the rename, so that the second saver
// notices what the first one did. If the file system has no locks, nothing is held, and only the
// check protects from other savers.
class SaveLock {
public:
    explicit SaveLock(const FileDescriptor& file) : file_(&file), isHeld_(acquire()) {}
    ~SaveLock() {
        const int error = errno;  // the rename's, which the caller has yet to look at
        // Closing the file would not do: a forked process may hold a copy of the descriptor.
        // A forked child shares the lock, and must not take it from its parent.
        if (isHeld_ && process_.isOfThisProcess()) {
            retryInterrupted([this] { return request(LOCK_UN); });
        }
        errno = error;
    }
    SaveLock(const SaveLock&) = delete;
    SaveLock& operator=(const SaveLock&) = delete;

private:
    int request(int operation) const noexcept {
        return systemCalls().flock(file_->get(), operation);
    }
    bool acquire() const;

    const FileDescriptor* file_;
    foundation::ProcessMark process_;
    bool isHeld_;
};

bool SaveLock::acquire() const {
    using namespace std::chrono_literals;
    constexpr auto kLongestWait = 10s;
    constexpr auto kPause = 10ms;
    const auto end = timeOfClock() + kLongestWait;
    for (;;) {
        if (retryInterrupted([this] { return request(LOCK_EX | LOCK_NB); }) == 0) return true;
        // EBADF comes from network file systems that lock only files open for writing.
        const bool hasNoLocks = errno == EOPNOTSUPP || errno == ENOSYS || errno == ENOLCK ||
                                errno == EINVAL || errno == EBADF;
        if (hasNoLocks) return false;
        if (errno != EWOULDBLOCK) throwSystemError(errno, "cannot lock it against other savers");
        if (timeOfClock() >= end) break;
        const struct timespec pause {
            .tv_sec = 0, .tv_nsec = std::chrono::nanoseconds(kPause).count()
        };
        systemCalls().nanosleep(&pause, nullptr);
    }
    throwSystemError(EBUSY, "someone else has kept it locked for " +
                                std::to_string(kLongestWait.count()) +
                                " seconds; it is left as it is (save again when that is done)");
}

}  // namespace

struct SaveTarget::State {
    // The one that may make, rename and remove names for this save.
    foundation::ProcessMark process;
    path given;
    FileDescriptor start;
    path resolved;
    FileDescriptor directory;
    std::string name;
    std::optional<FileStamp> stamp;
    // While the file is held open, the system gives its inode number to no other file. On file
    // systems with coarse times, such a file could have the same stamp.
    FileDescriptor held;

    // Runs `step` and puts the given name before the message of any std::system_error.
    template <class Step>
    auto naming(Step step) const -> decltype(step()) {
        try {
            return step();
        } catch (const std::system_error& error) {
            // what() ends in the text of the code, which the new exception adds again.
            std::string what = error.what();
            const std::string text = ": " + error.code().message();
            if (what.ends_with(text)) what.resize(what.size() - text.size());
            throw std::system_error(error.code(), foundation::shown(given) + ": " + what);
        }
    }

    void resolve();
    void look(const std::optional<struct stat>& found);
    void hold();
    FileDescriptor openModel() const;
    Place followAgain() const;
    void checkPlace() const;
    void checkUnchanged() const;
    int rename(const std::string& temporary, unsigned flags) const;
    int linkAndUnlink(const std::string& temporary) const;
    void moveIntoPlace(const std::string& temporary, const FileDescriptor& model) const;
    int replace(const std::string& temporary, const FileDescriptor& model) const;
    int moveIntoFreePlace(const std::string& temporary) const;
    void syncDirectory() const;
};

void SaveTarget::State::resolve() {
    start = openStart(given);
    Place place = follow(given, start);
    if (place.isLinked) requireWhatLinkLeadsTo(place, given, start);
    resolved = pathOf(place.path);
    directory = std::move(place.directory);
    name = std::move(place.name);
    look(place.found);
}

void SaveTarget::State::look(const std::optional<struct stat>& found) {
    if (!found) return;
    if (!S_ISREG(found->st_mode)) {
        throwSystemError(S_ISDIR(found->st_mode) ? EISDIR : EINVAL, kNotRegularFile);
    }
    // Renaming would replace a read-only file without asking.
    if (retryInterrupted([&] {
            return systemCalls().faccessat(directory.get(), name.c_str(), W_OK, AT_EACCESS);
        }) < 0) {
        throwSystemError(errno, "may not be written (change its mode, or save under another name)");
    }
    stamp = stampOf(*found);
    hold();
}

void SaveTarget::State::hold() {
    held = FileDescriptor(retryInterrupted([&] {
        return systemCalls().openat(directory.get(), name.c_str(), O_PATH | O_CLOEXEC | O_NOFOLLOW,
                                    0);
    }));
    if (!held && errno == ENOENT) throwChanged();
    if (!held) throwSystemError(errno, "cannot open it to know it again");
    if (held.stamp() != *stamp) throwChanged();
}

// The file whose attributes the new content gets. That is the target or, if there is none, an empty
// file that is created as any program would, so the system gives it the mode of the umask and the
// directory's default access list.
FileDescriptor SaveTarget::State::openModel() const {
    if (!stamp) return createScratch(directory, name, kAsTheUmaskAllows, process);
    FileDescriptor model(retryInterrupted([&] {
        return systemCalls().openat(directory.get(), name.c_str(),
                                    O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0);
    }));
    if (!model && errno == ENOENT) throwChanged();
    if (!model) throwSystemError(errno, "cannot open it to keep its owner, mode and attributes");
    if (model.stamp() != *stamp) throwChanged();
    return model;
}

Place SaveTarget::State::followAgain() const {
    try {
        return follow(given, start);
    } catch (const std::system_error& error) {
        const int reason = error.code().value();
        if (reason == ENOENT || reason == ENOTDIR || reason == ELOOP) throwChanged();
        throw;
    }
}

// Throws if the name that the caller gave leads elsewhere now: it, or a directory in it, may be a
// link.
void SaveTarget::State::checkPlace() const {
    const Place now = followAgain();
    const FileStamp here = directory.stamp();
    const FileStamp there = now.directory.stamp();
    const bool isSame =
        now.name == name && there.device == here.device && there.inode == here.inode;
    if (!isSame) throwChanged();
}

void SaveTarget::State::checkUnchanged() const {
    const auto found = find(directory, name);
    if (found.has_value() != stamp.has_value()) throwChanged();
    if (found && stampOf(*found) != *stamp) throwChanged();
}

int SaveTarget::State::rename(const std::string& temporary, unsigned flags) const {
    return retryInterrupted([&] {
        requireOwn(process);
        return systemCalls().renameat2(directory.get(), temporary.c_str(), directory.get(),
                                       name.c_str(), flags);
    });
}

// Stands in for a rename that refuses to replace (EEXIST).
int SaveTarget::State::linkAndUnlink(const std::string& temporary) const {
    const int result = retryInterrupted([&] {
        requireOwn(process);
        return systemCalls().linkat(directory.get(), temporary.c_str(), directory.get(),
                                    name.c_str(), 0);
    });
    if (result < 0) return result;
    requireOwn(process);
    if (removeName(directory, temporary) < 0) {
        throwSystemError(errno, "the new file is in its place, but keeps its temporary name \"" +
                                    temporary + "\" too (remove that)");
    }
    return result;
}

void SaveTarget::State::moveIntoPlace(const std::string& temporary,
                                      const FileDescriptor& model) const {
    const int result = stamp ? replace(temporary, model) : moveIntoFreePlace(temporary);
    if (result < 0 && errno == EEXIST) throwChanged();
    if (result < 0) throwSystemError(errno, "cannot put the new file in its place");
}

// `model` is the file that is replaced; its lock is the one that other savers take.
int SaveTarget::State::replace(const std::string& temporary, const FileDescriptor& model) const {
    const SaveLock lock(model);
    checkPlace();
    checkUnchanged();
    return rename(temporary, 0);
}

int SaveTarget::State::moveIntoFreePlace(const std::string& temporary) const {
    checkPlace();
    int result = rename(temporary, RENAME_NOREPLACE);
    const bool cannotRefuse = result < 0 && (errno == EINVAL || errno == ENOSYS);
    if (cannotRefuse) result = linkAndUnlink(temporary);
    const bool cannotLink =
        cannotRefuse && result < 0 && (errno == EPERM || errno == EOPNOTSUPP || errno == ENOSYS);
    if (!cannotLink) return result;
    // This file system has neither links nor a rename that refuses to replace. All that we can do
    // is check just before.
    const SaveLock lock(directory);
    checkPlace();
    checkUnchanged();
    return rename(temporary, 0);
}

void SaveTarget::State::syncDirectory() const {
    // EINVAL: this file system has no such operation on directories.
    if (systemCalls().fsync(directory.get()) < 0 && errno != EINVAL) {
        throwSystemError(
            errno,
            "the new file is in its place, but may be gone after a power failure, since "
            "its directory could not be made durable");
    }
}

void requireOwn(const foundation::ProcessMark& process) {
    if (!process.isOfThisProcess()) throwSystemError(EPERM, kForkedMeanwhile);
}

SaveTarget::SaveTarget(const path& file) : state_(std::make_shared<State>()) {
    state_->given = file;
    state_->naming([this] { state_->resolve(); });
}
SaveTarget::SaveTarget(SaveTarget&&) noexcept = default;
SaveTarget& SaveTarget::operator=(SaveTarget&&) noexcept = default;
SaveTarget::~SaveTarget() = default;

const path& SaveTarget::resolved() const noexcept {
    return state_->resolved;
}
const std::optional<FileStamp>& SaveTarget::stamp() const noexcept {
    return state_->stamp;
}
void SaveTarget::expect(const FileStamp& opened) {
    state_->stamp = opened;
}

FileDescriptor SaveTarget::createScratchFile() const {
    return state_->naming([this] {
        return createScratch(state_->directory, state_->name, kPrivate, state_->process);
    });
}

struct ReplacementFile::State {
    explicit State(std::shared_ptr<const SaveTarget::State> where)
        : target(std::move(where)),
          model(target->openModel()),
          temporary(target->directory, target->name, target->process) {}

    FileStamp commit();

    std::shared_ptr<const SaveTarget::State> target;
    // Opened first: if it needs a name for a moment, no second temporary file exists yet.
    FileDescriptor model;
    TemporaryFile temporary;
};

FileStamp ReplacementFile::State::commit() {
    const FileDescriptor& file = temporary.file();
    copyAttributes(model, temporary.file());
    syncFile(file);
    const FileStamp stamp = file.stamp();
    target->moveIntoPlace(temporary.name(), model);
    temporary.forgetName();
    target->syncDirectory();
    return stamp;
}

ReplacementFile::ReplacementFile(const SaveTarget& target)
    : state_(target.state_->naming([&] { return std::make_unique<State>(target.state_); })) {}

ReplacementFile::~ReplacementFile() = default;

FileDescriptor& ReplacementFile::file() noexcept {
    return state_->temporary.file();
}

void ReplacementFile::abandon() noexcept {
    state_->temporary.removeName();
}

FileStamp ReplacementFile::commit() {
    try {
        return state_->target->naming([this] { return state_->commit(); });
    } catch (...) {
        state_->temporary.removeName();
        throw;
    }
}

void replaceWithFile(const SaveTarget& target, const path& content) {
    const SaveTarget::State& state = *target.state_;
    state.naming([&] {
        // openat() and renameat2() are given the target's directory, which an absolute name
        // ignores.
        const std::string name = detail::make_native_access_form_i18n(absolute(content));
        FileDescriptor file(retryInterrupted([&] {
            return systemCalls().openat(state.directory.get(), name.c_str(),
                                        O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0);
        }));
        if (!file) throwSystemError(errno, "cannot open the new content \"" + name + "\"");
        const FileDescriptor model = state.openModel();
        copyAttributes(model, file);
        syncFile(file);
        state.moveIntoPlace(name, model);
        state.syncDirectory();
    });
}

}  // namespace fl::filesystem
