#include <fl/ReplacementFile.hpp>

#include <fl/FileAttributes.hpp>
#include <fl/Retry.hpp>
#include <fl/SystemCalls.hpp>
#include <fl/i18n.hpp>
#include <foundation/ProcessMark.hpp>
#include <foundation/Shown.hpp>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <ctime>
#include <random>
#include <string_view>
#include <system_error>
#include <utility>

namespace fl::filesystem {

namespace {

constexpr const char* kNotRegularFile = "is not a regular file (save under another name)";
constexpr int kMaxLinks = 40;  // as many as the system follows
constexpr int kNameAttempts = 100;
constexpr mode_t kPrivate = 0600;
constexpr mode_t kAsTheUmaskAllows = 0666;

std::string parentOf(const std::string& file) {
    const std::size_t slash = file.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : file.substr(0, slash);
}

path pathOf(const std::string& bytes) {
    try {
        return path::fromBytes(bytes);
    } catch (const i18n::ConversionError&) {
        throwSystemError(EILSEQ, "leads to a name that is not valid UTF-8");
    }
}

std::string nameOf(const std::string& file) {
    return file.substr(file.rfind('/') + 1);
}

FileDescriptor openDirectory(int start, const std::string& directory) {
    FileDescriptor opened(retryInterrupted([&] {
        return systemCalls().openat(start, directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC,
                                    0);
    }));
    if (!opened) throwSystemError(errno, "cannot open the directory \"" + directory + "\"");
    return opened;
}

// Opens the symbolic link itself, so that its owner and its target are those of the same link.
FileDescriptor openLink(const FileDescriptor& directory, const std::string& name) {
    FileDescriptor link(retryInterrupted([&] {
        return systemCalls().openat(directory.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC,
                                    0);
    }));
    if (!link) throwSystemError(errno, "cannot open the symbolic link");
    return link;
}

// Refuses another user's link in a directory where everybody may create files, such as /tmp:
// whoever plants one there would choose which file is replaced. The system has the same rule
// (protected_symlinks) for links that it follows, but we read the links ourselves.
void requireTrusted(const FileDescriptor& link, const FileDescriptor& directory,
                    const char* advice) {
    struct stat ofLink {};
    struct stat ofDirectory {};
    if (systemCalls().fstat(link.get(), &ofLink) < 0 ||
        systemCalls().fstat(directory.get(), &ofDirectory) < 0) {
        throwSystemError(errno, "cannot look at the symbolic link");
    }
    constexpr mode_t kForAll = S_ISVTX | S_IWOTH;
    if ((ofDirectory.st_mode & kForAll) != kForAll) return;
    if (ofLink.st_uid == ::geteuid() || ofLink.st_uid == ofDirectory.st_uid) return;
    throwSystemError(EACCES,
                     std::string("is another user's symbolic link, in a directory where everybody "
                                 "may put one (") +
                         advice + ")");
}

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

constexpr const char* kCannotCreate = "cannot create a temporary file in the directory";

// The entry of an open file by which it can be linked to a name. It is that of this thread, because a
// thread may have descriptors of its own, and the main thread may have ended.
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

// Whether the file can be linked by its entry. A sandbox may lack /proc, forbid looking into it, or have
// a folder of its own there.
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
    if (!file && !isUnsupported) throwSystemError(errno, kCannotCreate);
    return file;
}

int removeName(const FileDescriptor& directory, const std::string& name) noexcept {
    return retryInterrupted(
        [&] { return systemCalls().unlinkat(directory.get(), name.c_str(), 0); });
}

std::string openNamed(const FileDescriptor& directory, const std::string& target, mode_t mode,
                      FileDescriptor& file) {
    return withFreeName(target, kCannotCreate, [&](const char* name) {
        file = FileDescriptor(systemCalls().openat(
            directory.get(), name, O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC | O_NOFOLLOW, mode));
        return file ? 0 : -1;
    });
}

// Creates a file without a name on any file system: if it has to be created with one, removes that.
FileDescriptor createScratch(const FileDescriptor& directory, const std::string& target,
                             mode_t mode) {
    FileDescriptor file = openUnnamed(directory, mode);
    if (file) return file;
    const std::string name = openNamed(directory, target, mode, file);
    if (removeName(directory, name) < 0) {
        throwSystemError(errno, "cannot remove a temporary file");
    }
    return file;
}

void syncFile(const FileDescriptor& file) {
    if (systemCalls().fsync(file.get()) < 0) throwSystemError(errno, "cannot make it durable");
}

[[noreturn]] void throwChanged() {
    throwSystemError(EBUSY, kChangedMeanwhile);
}

// Where a name leads after its symbolic links have been followed.
struct Place {
    std::string path;
    FileDescriptor directory;
    std::string name;                  // in the directory
    std::optional<struct stat> found;  // what is there, if anything
    bool isLinked = false;             // whether a symbolic link led here
};

// Opens the working directory, so that a relative name means the same later. Returns an empty
// descriptor for an absolute name.
FileDescriptor openStart(const path& given) {
    if (given.native().starts_with(u'/')) return {};
    FileDescriptor opened(retryInterrupted(
        [] { return systemCalls().openat(AT_FDCWD, ".", O_PATH | O_DIRECTORY | O_CLOEXEC, 0); }));
    if (!opened) throwSystemError(errno, "cannot open the working directory");
    return opened;
}

// Follows the links of the last component. The system could not do this for us, because a dangling
// link has to lead to the place where its target will be created.
Place follow(const path& given, const FileDescriptor& start) {
    Place place;
    place.path = detail::make_native_access_form_i18n(given);
    if (place.path.empty()) throwSystemError(ENOENT, "cannot be saved under this name");
    for (int links = 0; links <= kMaxLinks; ++links) {
        place.directory = openDirectory(start ? start.get() : AT_FDCWD, parentOf(place.path));
        place.name = nameOf(place.path);
        if (place.name.empty() || place.name == "." || place.name == "..") {
            throwSystemError(EISDIR, kNotRegularFile);
        }
        place.found = find(place.directory, place.name);
        if (!place.found || !S_ISLNK(place.found->st_mode)) return place;
        const std::string target =
            readTrustedLink(place.directory, place.name, "save under another name");
        place.isLinked = true;
        place.path =
            target.starts_with('/') ? target : parentOf(place.path).append("/").append(target);
    }
    throwSystemError(ELOOP, "cannot follow its symbolic links (save under another name)");
}

// Throws unless the system reaches the same file through the links as follow() did. The text of a
// link in /proc need not be the name of what it leads to: the file of "/proc/self/fd/7" may have
// been removed, may never have had a name, or may have it where this process cannot see it. A save
// must not create or replace another file instead.
void requireWhatLinkLeadsTo(Place& place, const path& given, const FileDescriptor& start) {
    const std::string name = detail::make_native_access_form_i18n(given);
    struct stat meant {};
    if (retryInterrupted([&] {
            return systemCalls().fstatat(start ? start.get() : AT_FDCWD, name.c_str(), &meant, 0);
        }) < 0) {
        if (errno == ENOENT || errno == ENOTDIR) return;  // a dangling link
        throwSystemError(errno, "cannot follow its symbolic links");
    }
    const auto isFound = [&] {
        return place.found && place.found->st_dev == meant.st_dev &&
               place.found->st_ino == meant.st_ino;
    };
    if (isFound()) return;
    place.found = find(place.directory, place.name);  // somebody may have saved it in between
    if (!isFound()) {
        throwSystemError(ENOENT,
                         "is a link to an open file, which has no name here to be saved under "
                         "(save under another name)");
    }
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
        if (isHeld_) retryInterrupted([this] { return request(LOCK_UN); });
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

std::string readTrustedLink(const FileDescriptor& directory, const std::string& name,
                            const char* advice) {
    const FileDescriptor link = openLink(directory, name);
    requireTrusted(link, directory, advice);
    std::array<char, PATH_MAX> target{};
    const ssize_t size = retryInterrupted(
        [&] { return systemCalls().readlinkat(link.get(), "", target.data(), target.size()); });
    if (size < 0) throwSystemError(errno, "cannot read the symbolic link");
    return {target.data(), static_cast<std::size_t>(size)};
}

struct SaveTarget::State {
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
    int rename(const std::string& temporary, unsigned flags) const noexcept;
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
    if (!stamp) return createScratch(directory, name, kAsTheUmaskAllows);
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

int SaveTarget::State::rename(const std::string& temporary, unsigned flags) const noexcept {
    return retryInterrupted([&] {
        return systemCalls().renameat2(directory.get(), temporary.c_str(), directory.get(),
                                       name.c_str(), flags);
    });
}

// Stands in for a rename that refuses to replace (EEXIST).
int SaveTarget::State::linkAndUnlink(const std::string& temporary) const {
    const int result = retryInterrupted([&] {
        return systemCalls().linkat(directory.get(), temporary.c_str(), directory.get(),
                                    name.c_str(), 0);
    });
    if (result == 0 && removeName(directory, temporary) < 0) {
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
    return state_->naming(
        [this] { return createScratch(state_->directory, state_->name, kPrivate); });
}

struct ReplacementFile::State {
    std::shared_ptr<const SaveTarget::State> target;
    // Opened before `file`: if it needs a name for a moment, no second temporary file exists yet.
    FileDescriptor model;
    FileDescriptor file;
    std::string name;                 // in the directory; empty while the file has none
    foundation::ProcessMark process;  // of the one that may remove the name

    void create();
    void link();
    FileStamp commit();
    void unlink() noexcept;
};

void ReplacementFile::State::create() {
    model = target->openModel();
    file = openUnnamed(target->directory, kPrivate);
    if (file && canBeLinked(file)) return;
    file = {};
    name = openNamed(target->directory, target->name, kPrivate, file);
}

void ReplacementFile::State::link() {
    const std::string entry = entryOf(file);
    const int directory = target->directory.get();
    constexpr const char* kWhat = "cannot name the temporary file";
    name = withFreeName(target->name, kWhat, [&](const char* free) {
        return systemCalls().linkat(AT_FDCWD, entry.c_str(), directory, free, AT_SYMLINK_FOLLOW);
    });
    // What gets the target's name must be what was written, whatever the entry stands for by now.
    const int error = errorOfName(directory, name.c_str(), AT_SYMLINK_NOFOLLOW, file);
    if (error != 0) throwSystemError(error, kWhat);
}

FileStamp ReplacementFile::State::commit() {
    copyAttributes(model, file);
    syncFile(file);
    const FileStamp stamp = file.stamp();
    if (name.empty()) link();
    target->moveIntoPlace(name, model);
    name.clear();
    target->syncDirectory();
    return stamp;
}

// A forked process has a copy of this object, but the temporary file still belongs to its parent.
void ReplacementFile::State::unlink() noexcept {
    if (!name.empty() && process.isOfThisProcess()) removeName(target->directory, name);
    name.clear();
}

ReplacementFile::ReplacementFile(const SaveTarget& target) : state_(std::make_unique<State>()) {
    state_->target = target.state_;
    target.state_->naming([this] { state_->create(); });
}

ReplacementFile::~ReplacementFile() {
    state_->unlink();
}

FileDescriptor& ReplacementFile::file() noexcept {
    return state_->file;
}

void ReplacementFile::abandon() noexcept {
    state_->unlink();
}

FileStamp ReplacementFile::commit() {
    try {
        return state_->target->naming([this] { return state_->commit(); });
    } catch (...) {
        state_->unlink();
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
