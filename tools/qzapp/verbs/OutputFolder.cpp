#include "tools/qzapp/verbs/OutputFolder.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <unistd.h>
#include <fl/FileAttributes.hpp>
#include <fl/ReplacementFile.hpp>
#include <fl/Retry.hpp>
#include <fl/SystemCalls.hpp>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <system_error>

#include "app/Error.hpp"
#include "app/SignalsBlocked.hpp"
#include "tools/qzapp/cli/Arguments.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;
using fl::filesystem::FileStamp;
using fl::filesystem::find;
using fl::filesystem::retryInterrupted;
using fl::filesystem::systemCalls;
using fl::filesystem::throwSystemError;

constexpr const char* kNoDirectory = "exists and is not a directory; choose another with -o";
constexpr mode_t kAsTheUmaskAllows = 0777;
constexpr mode_t kPrivate = 0700;

FileDescriptor openDirectory(const std::string& name, int flags) {
    return FileDescriptor(retryInterrupted([&] {
        return systemCalls().openat(AT_FDCWD, name.c_str(),
                                    O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags, 0);
    }));
}

std::string withoutTrailingSlashes(std::string name) {
    while (name.size() > 1 && name.ends_with('/'))
        name.pop_back();
    return name;
}

bool isLink(const std::string& name) {
    struct stat found {};
    return ::lstat(name.c_str(), &found) == 0 && S_ISLNK(found.st_mode);
}

// Opens the directory of this name. If it is a link, reads it instead of letting the system follow
// it, so that no link that another user planted decides where the files go. Returns an empty
// descriptor, with errno set, if there is no such directory.
FileDescriptor openThroughLinks(std::string name) {
    constexpr int kMaxLinks = 40;  // as many as the system follows
    for (int links = 0; links <= kMaxLinks; ++links) {
        FileDescriptor opened = openDirectory(name, O_NOFOLLOW);
        const int error = errno;
        if (opened || !isLink(name)) {
            errno = error;
            return opened;
        }
        const std::size_t slash = name.rfind('/');
        const std::string parent = slash == std::string::npos ? "./" : name.substr(0, slash + 1);
        const FileDescriptor directory = openDirectory(parent, 0);
        if (!directory) return {};
        const std::string target = fl::filesystem::readTrustedLink(
            directory, name.substr(slash + 1), "choose another with -o");
        name = withoutTrailingSlashes(target.starts_with('/') ? target : parent + target);
    }
    errno = ELOOP;
    return {};
}

bool isThere(const FileDescriptor& directory, const std::string& name, const FileStamp& stamp) {
    const auto found = find(directory, name);
    return found && S_ISREG(found->st_mode) && fl::filesystem::stampOf(*found) == stamp;
}

int rename(const FileDescriptor& from, const std::string& name, const FileDescriptor& to,
           const std::string& newName, unsigned flags) {
    return retryInterrupted([&] {
        return systemCalls().renameat2(from.get(), name.c_str(), to.get(), newName.c_str(), flags);
    });
}

bool isUnknown(int error) {
    return error == EINVAL || error == ENOSYS;
}

// Renames without replacing anything; throws EEXIST if the new name is taken.
void renameToFreeName(const FileDescriptor& from, const std::string& name, const FileDescriptor& to,
                      const std::string& newName) {
    if (rename(from, name, to, newName, RENAME_NOREPLACE) == 0) return;
    if (!isUnknown(errno)) throwSystemError(errno, "cannot be put in its place");
    // A hard link does not replace anything either, but not all file systems have them, and folders
    // cannot be linked.
    if (systemCalls().linkat(from.get(), name.c_str(), to.get(), newName.c_str(), 0) == 0) {
        systemCalls().unlinkat(from.get(), name.c_str(), 0);
        return;
    }
    // What remains is to look first and then rename.
    const bool isTaken = errno == EEXIST || find(to, newName).has_value();
    if (isTaken) throwSystemError(EEXIST, "cannot be put in its place");
    if (rename(from, name, to, newName, 0) != 0) {
        throwSystemError(errno, "cannot be put in its place");
    }
}

void sync(const FileDescriptor& file, const char* failure = "cannot be made durable") {
    // EINVAL: the file system cannot sync directories.
    if (systemCalls().fsync(file.get()) < 0 && errno != EINVAL) throwSystemError(errno, failure);
}

constexpr const char* kMayBeLost =
    "the files are in their places, but may be gone after a power failure, because the folder "
    "could not be made durable";

}  // namespace

OutputFolder::OutputFolder(const FileName& folder, Links links) : folder_(folder) {
    about(folder_, [&] { openPlace(links); });
    if (!missing_.empty()) about(folder_, [&] { makeFolders(); });
}

void OutputFolder::allowIn(Cage& cage) const {
    if (missing_.empty()) return cage.mayChange(place_);
    cage.mayChange(private_->descriptor());
    cage.mayRenameFoldersIn(place_);
}

void OutputFolder::expect(const std::vector<std::string>& names, bool force) {
    for (const std::string& name : names) {
        files_.push_back({name, std::nullopt});
        if (missing_.empty()) settle(files_.back(), force);
    }
    // Only now, so that an app that cannot be read leaves an existing folder untouched.
    if (missing_.empty()) about(folder_, [&] { makeFolders(); });
}

FileName OutputFolder::nameOf(const std::string& name) const {
    const char* separator = folder_.shown.ends_with('/') ? "" : "/";
    return fileArgument(folder_.shown + separator + name);
}

// Opens the longest part of the folder's path that exists as place_; the rest goes into missing_.
void OutputFolder::openPlace(Links links) {
    std::string name = withoutTrailingSlashes(folder_.bytes());
    const auto open = [&] {
        if (links == Links::Refuse && missing_.empty()) return openDirectory(name, O_NOFOLLOW);
        return openThroughLinks(name.empty() ? "." : name);
    };
    while (!(place_ = open())) {
        const int reason = errno;
        struct stat found {};
        const bool isThere = ::lstat(name.c_str(), &found) == 0;
        if (isThere && S_ISLNK(found.st_mode) && links == Links::Refuse && missing_.empty()) {
            throw Error(folder_.shown,
                        "is a symbolic link, which leads elsewhere; name a folder with -o");
        }
        if (reason == ENOTDIR || (reason == ENOENT && isThere)) {
            throw Error(folder_.shown, kNoDirectory);
        }
        if (reason != ENOENT) {
            throw Error(folder_.shown, "cannot be opened (" +
                                           std::generic_category().message(reason) +
                                           "); choose another with -o");
        }
        const std::size_t start = name.rfind('/') + 1;  // 0 when there is no slash
        missing_.insert(missing_.begin(), name.substr(start));
        name = withoutTrailingSlashes(name.substr(0, start));
        if (missing_.front() == ".") missing_.erase(missing_.begin());
    }
    if (std::ranges::find(missing_, "..") != missing_.end() ||
        missing_.size() > std::size_t{kMaxNesting}) {
        throw Error(folder_.shown, "leads through folders that do not exist; make them first");
    }
}

void OutputFolder::settle(File& file, bool force) const {
    const FileName shown = nameOf(file.name);
    const auto found = about(shown, [&] { return find(place_, file.name); });
    if (!found) return;
    if (!force) throw Error(shown.shown, "already exists; give --force to replace it");
    if (S_ISLNK(found->st_mode)) {
        throw Error(shown.shown, "is a symbolic link, which leads elsewhere; remove it");
    }
    if (!S_ISREG(found->st_mode)) {
        throw Error(shown.shown, "is not a regular file; remove it, or choose another with -o");
    }
    // A rename would replace even a read-only file.
    if (retryInterrupted([&] {
            return systemCalls().faccessat(place_.get(), file.name.c_str(), W_OK, AT_EACCESS);
        }) < 0) {
        throw Error(shown.shown, "may not be written; change its permissions");
    }
    file.old = fl::filesystem::stampOf(*found);
}

void OutputFolder::makeFolders() {
    private_.emplace(place_, missing_.empty() ? kPrivate : kAsTheUmaskAllows);
    // The private folder itself will be the first of the missing ones.
    for (std::size_t i = 1; i < missing_.size(); ++i) {
        const std::string& name = missing_[i];
        if (::mkdirat(folderOfFiles().get(), name.c_str(), kAsTheUmaskAllows) != 0) {
            throwSystemError(errno, "cannot make the folder \"" + name + "\"");
        }
        inner_.push_back(openNewFolder(folderOfFiles(), name, kAsTheUmaskAllows));
    }
}

const FileDescriptor& OutputFolder::folderOfFiles() const {
    return inner_.empty() ? private_->descriptor() : inner_.back();
}

FileDescriptor& OutputFolder::create(const std::string& name) {
    File& file = *std::ranges::find(files_, name, &File::name);
    file.content = FileDescriptor(retryInterrupted([&] {
        return systemCalls().openat(folderOfFiles().get(), name.c_str(),
                                    O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    }));
    if (!file.content) {
        throw Error(nameOf(name).shown,
                    "cannot be made (" + std::generic_category().message(errno) + ")");
    }
    return file.content;
}

void OutputFolder::commit() {
    for (File& file : files_)
        about(nameOf(file.name), [&] { finish(file); });
    const SignalsBlocked blocked;
    if (missing_.empty()) return moveFiles();
    about(folder_, [&] { renameFolder(); });
}

// Gives a file the attributes of the file that it replaces and makes it durable.
void OutputFolder::finish(File& file) const {
    if (file.old) {
        const FileDescriptor old(retryInterrupted([&] {
            return systemCalls().openat(place_.get(), file.name.c_str(),
                                        O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0);
        }));
        if (!old && errno != ENOENT && errno != ELOOP) {
            throwSystemError(errno, "cannot be opened to keep its owner, mode and attributes");
        }
        if (!old || old.stamp() != *file.old) throwChanged(file.name);
        fl::filesystem::copyAttributes(old, file.content);
    }
    sync(file.content);
}

void OutputFolder::renameFolder() {
    for (const FileDescriptor& folder : inner_)
        sync(folder);
    sync(private_->descriptor());
    try {
        renameToFreeName(place_, private_->name(), place_, missing_.front());
    } catch (const std::system_error& e) {
        if (e.code() != std::errc::file_exists) throw;
        throw Error(folder_.shown, "was made by another program meanwhile; try again");
    }
    requireOwnFolder();
    private_->release();
    sync(place_, kMayBeLost);
}

// Takes the rename back if it has moved the folder of another program.
void OutputFolder::requireOwnFolder() const {
    try {
        private_->requireAt(missing_.front());
    } catch (const std::system_error&) {
        rename(place_, missing_.front(), place_, private_->name(), RENAME_NOREPLACE);
        throw;
    }
}

void OutputFolder::moveFiles() {
    for (std::size_t i = 0; i < files_.size(); ++i) {
        try {
            about(nameOf(files_[i].name), [&] { moveIn(files_[i]); });
        } catch (const std::exception& e) {
            takeBack(i + 1, e);
            throw;
        }
    }
    about(folder_, [&] { sync(place_, kMayBeLost); });
}

void OutputFolder::takeBack(std::size_t count, const std::exception& reason) {
    bool isAllBack = true;
    while (count-- > 0)
        isAllBack &= takeBack(files_[count]);
    if (isAllBack) return;
    private_->release();  // the old files are in it
    throw Error(folder_.shown,
                fmt::format("holds only some of the new files, because of this: {}; the files that "
                            "they replaced are in its folder {}",
                            reason.what(), private_->name()));
}

void OutputFolder::moveIn(File& file) const {
    if (file.old) return exchange(file);
    try {
        renameToFreeName(private_->descriptor(), file.name, place_, file.name);
    } catch (const std::system_error& e) {
        if (e.code() != std::errc::file_exists) throw;
        throwChanged(file.name);
    }
}

// Puts the new file in place and the old one in the private folder, where it stays until all files
// are in place.
void OutputFolder::exchange(File& file) const {
    const FileDescriptor& from = private_->descriptor();
    file.keptName = file.name;
    if (rename(from, file.name, place_, file.name, RENAME_EXCHANGE) != 0) {
        if (errno == ENOENT) throwChanged(file.name);
        if (!isUnknown(errno)) throwSystemError(errno, "cannot be put in its place");
        file.keptName += ".old";
        renameToFreeName(place_, file.name, from, file.keptName);
        renameToFreeName(from, file.name, place_, file.name);
    }
    if (!isThere(from, file.keptName, *file.old)) throwChanged(file.name);
}

// Undoes moveIn(), even if that failed halfway. Returns false if that was not possible. A file that
// another program has put in the place meanwhile stays there.
bool OutputFolder::takeBack(const File& file) const noexcept {
    const FileDescriptor& folder = private_->descriptor();
    try {
        const bool isOurs = isThere(place_, file.name, file.content.stamp());
        const bool isExchanged = file.keptName == file.name;
        if (isOurs && isExchanged) {
            return rename(folder, file.name, place_, file.name, RENAME_EXCHANGE) == 0;
        }
        if (isOurs && rename(place_, file.name, folder, file.name, 0) != 0) return false;
        if (isExchanged || file.keptName.empty() || !find(folder, file.keptName)) return true;
        if (!find(place_, file.name)) renameToFreeName(folder, file.keptName, place_, file.name);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

void OutputFolder::throwChanged(const std::string& name) const {
    throw Error(
        nameOf(name).shown,
        "was made, changed or removed by another program meanwhile; nothing is written, try again");
}

}  // namespace qzapp
