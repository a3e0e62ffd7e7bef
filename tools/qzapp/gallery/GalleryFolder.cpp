#include "tools/qzapp/gallery/GalleryFolder.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <unistd.h>
#include <fl/Retry.hpp>
#include <fl/SystemCalls.hpp>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <system_error>

#include "app/Error.hpp"
#include "app/SignalsBlocked.hpp"
#include "app/Warnings.hpp"
#include "tools/qzapp/gallery/GalleryFiles.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;
using fl::filesystem::retryInterrupted;
using fl::filesystem::systemCalls;
using fl::filesystem::throwSystemError;
using namespace galleryfiles;

constexpr mode_t kAsTheUmaskAllows = 0777;
constexpr const char* kCannotBePut = "cannot be put in its place";

FileDescriptor openFolder(int parent, const std::string& name, int flags = O_NOFOLLOW) {
    FileDescriptor folder(retryInterrupted([&] {
        return ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags);
    }));
    if (!folder) throwSystemError(errno, "the folder \"" + name + "\" cannot be opened");
    return folder;
}

// Calls `visit` with each name in the folder and whether it is a folder.
void forEachEntry(const FileDescriptor& folder,
                  const std::function<void(const std::string&, bool)>& visit) {
    const FileDescriptor own = openFolder(folder.get(), ".");
    const std::unique_ptr<DIR, int (*)(DIR*)> list(
        ::fdopendir(::fcntl(own.get(), F_DUPFD_CLOEXEC, 0)), ::closedir);
    if (!list) throwSystemError(errno, "cannot be listed");
    while (const dirent* const entry = ::readdir(list.get())) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        struct stat status {};
        if (::fstatat(own.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
            throwSystemError(errno, "cannot be looked at");
        if (!S_ISDIR(status.st_mode) && !S_ISREG(status.st_mode)) {
            visit(name + " (neither a file nor a folder)", false);
            continue;
        }
        visit(name, S_ISDIR(status.st_mode));
    }
}

bool isMadeOf(std::string_view text, std::string_view characters) {
    return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

constexpr std::string_view kHexDigits = "0123456789abcdef", kPieceCharacters = "0123456789abcdef-";

// Whether a file of this name is in the folder of a gallery. `in` is "", "data", or a folder of
// pictures.
bool isFileOf(std::string_view in, std::string_view name) {
    if (in.empty()) return name == kPage;
    const std::size_t dot = name.find('.');
    if (dot == std::string_view::npos) return false;
    const std::string_view stem = name.substr(0, dot), extension = name.substr(dot);
    if (in == kData) return isMadeOf(stem, kPieceCharacters) && extension == ".js";
    return isMadeOf(stem, kHexDigits) && (extension == ".png" || extension == ".jpg");
}

bool isFolderOf(std::string_view in, std::string_view name) {
    if (in.empty()) return name == kData || name == kPictures;
    return in == kPictures && name.size() == kPictureFolder && isMadeOf(name, kHexDigits);
}

using Visit =
    std::function<void(const FileDescriptor& folder, const std::string& name, bool isFolder)>;

// Visits everything in a gallery, what is in a folder before the folder. Throws std::runtime_error
// if there is something that does not belong there.
void walk(const FileDescriptor& folder, const std::string& in, const Visit& visit) {
    forEachEntry(folder, [&](const std::string& name, bool isFolder) {
        if (isFolder ? !isFolderOf(in, name) : !isFileOf(in, name)) {
            throw std::runtime_error("holds \"" + (in.empty() ? "" : in + "/") + name +
                                     "\", which is not of a gallery; nothing is replaced, choose "
                                     "another folder");
        }
        if (isFolder) walk(openFolder(folder.get(), name), name, visit);
        visit(folder, name, isFolder);
    });
}

// What the page of each gallery begins with.
std::string_view beginOfPage() {
    const std::string_view page = gallery::kFolderPage;
    return page.substr(0, page.find("<meta http-equiv"));
}

bool isEmpty(const FileDescriptor& folder) {
    bool empty = true;
    forEachEntry(folder, [&](const std::string&, bool) { empty = false; });
    return empty;
}

void requireGallery(const FileDescriptor& folder) {
    if (isEmpty(folder)) return;
    const FileDescriptor page(retryInterrupted([&] {
        return ::openat(folder.get(), kPage, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    }));
    std::string begin(beginOfPage().size(), '\0');
    if (page) begin.resize(page.readAt(std::as_writable_bytes(std::span(begin)), 0));
    if (!page || begin != beginOfPage())
        throw std::runtime_error("is not a gallery; nothing is replaced, choose another folder");
    walk(folder, "", [](const FileDescriptor&, const std::string&, bool) {});
}

void removeGallery(const FileDescriptor& folder) {
    walk(folder, "", [](const FileDescriptor& in, const std::string& name, bool isFolder) {
        ::unlinkat(in.get(), name.c_str(), isFolder ? AT_REMOVEDIR : 0);
    });
}

int rename(const FileDescriptor& place, const std::string& from, const std::string& to,
           unsigned flags) {
    return retryInterrupted([&] {
        return systemCalls().renameat2(place.get(), from.c_str(), place.get(), to.c_str(), flags);
    });
}

bool isUnknown(int error) {
    return error == EINVAL || error == ENOSYS;
}

FileDescriptor makeFolder(const FileDescriptor& parent, const std::string& name) {
    if (::mkdirat(parent.get(), name.c_str(), kAsTheUmaskAllows) != 0 && errno != EEXIST)
        throwSystemError(errno, "cannot make the folder \"" + name + "\"");
    return openFolder(parent.get(), name);
}

}  // namespace

GalleryFolder::GalleryFolder(const FileName& folder, bool force) : shown_(folder) {
    about(shown_, [&] {
        openPlace();
        struct stat found {};
        if (::fstatat(place_.get(), name_.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0) {
            if (S_ISLNK(found.st_mode))
                throw Error(shown_.shown, "is a symbolic link; name the folder that it leads to");
            if (!S_ISDIR(found.st_mode))
                throw Error(shown_.shown, "exists and is not a folder; choose another with -o");
            old_ = openFolder(place_.get(), name_);
            if (!force && !isEmpty(old_))
                throw Error(shown_.shown, "already exists; give --force to replace it");
            requireGallery(old_);
        }
        private_.emplace(place_, kAsTheUmaskAllows);
    });
}

GalleryFolder::~GalleryFolder() {
    if (isInPlace_ || !private_) return;
    try {
        // PrivateFolder removes no more files than its bound allows.
        removeGallery(private_->descriptor());
    } catch (const std::exception&) {
        // What remains, it reports.
    }
}

void GalleryFolder::openPlace() {
    std::string name = shown_.bytes();
    while (name.size() > 1 && name.ends_with('/'))
        name.pop_back();
    const std::size_t slash = name.rfind('/');
    const std::string parent =
        slash == std::string::npos ? "." : name.substr(0, std::max<std::size_t>(slash, 1));
    name_ = name.substr(slash == std::string::npos ? 0 : slash + 1);
    if (name_.empty() || name_ == "." || name_ == "..")
        throw Error(shown_.shown, "cannot be replaced; name a folder in it");
    try {
        place_ = openFolder(AT_FDCWD, parent, 0);
        path_ = (std::filesystem::canonical(parent) / name_).string();
    } catch (const std::system_error& e) {
        throw Error(shown_.shown, "cannot be made, because its folder cannot be opened (" +
                                      e.code().message() + "); make that first");
    }
}

void GalleryFolder::allowIn(Cage& cage) const {
    cage.mayChange(private_->descriptor());
}

void GalleryFolder::write(const std::string& name, std::string_view bytes) const {
    about(shown_, [&] {
        const FileDescriptor* folder = &private_->descriptor();
        FileDescriptor inner;
        std::size_t begin = 0;
        for (std::size_t slash; (slash = name.find('/', begin)) != std::string::npos;
             begin = slash + 1) {
            inner = makeFolder(*folder, name.substr(begin, slash - begin));
            folder = &inner;
        }
        FileDescriptor file(retryInterrupted([&] {
            return systemCalls().openat(folder->get(), name.c_str() + begin,
                                        O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
        }));
        if (!file) throwSystemError(errno, "the file \"" + name + "\" cannot be made");
        file.writeAt(std::as_bytes(std::span(bytes)), 0);
    });
}

void GalleryFolder::commit() {
    about(shown_, [&] {
        // One call for what may be a hundred thousand files.
        if (::syncfs(private_->descriptor().get()) != 0)
            throwSystemError(errno, "cannot be made durable");
    });
    // Until the old gallery is removed, too, which nothing else would do.
    const SignalsBlocked blocked;
    about(shown_, [&] {
        if (old_)
            exchange();
        else
            putNew();
        private_->requireAt(name_);
        private_->release();
        isInPlace_ = true;
        if (systemCalls().fsync(place_.get()) < 0 && errno != EINVAL)
            throwSystemError(errno, "is in its place, but may be gone after a power failure");
    });
    if (!old_) return;
    try {
        removeGallery(old_);
    } catch (const std::exception&) {
        // Something else has been put there meanwhile, and stays.
    }
    if (::unlinkat(place_.get(), private_->name().c_str(), AT_REMOVEDIR) != 0)
        warn(shown_.shown + ": the folder " + private_->name() +
             " beside it holds what was replaced and cannot be removed; remove it");
}

void GalleryFolder::requireSameGallery() const {
    struct stat named {};
    struct stat own {};
    if (::fstatat(place_.get(), name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0 ||
        ::fstat(old_.get(), &own) != 0 || named.st_dev != own.st_dev ||
        named.st_ino != own.st_ino) {
        throw Error(shown_.shown, "was replaced by another program meanwhile; try again");
    }
    requireGallery(old_);
}

void GalleryFolder::putNew() {
    if (rename(place_, private_->name(), name_, RENAME_NOREPLACE) == 0) return;
    int reason = errno;
    if (isUnknown(reason)) {
        // What remains is to look first and then rename.
        struct stat ignored {};
        reason = EEXIST;
        if (::fstatat(place_.get(), name_.c_str(), &ignored, AT_SYMLINK_NOFOLLOW) != 0) {
            if (rename(place_, private_->name(), name_, 0) == 0) return;
            reason = errno;
        }
    }
    if (reason == EEXIST)
        throw Error(shown_.shown, "was made by another program meanwhile; try again");
    throwSystemError(reason, kCannotBePut);
}

// The private name then leads to what was there before.
void GalleryFolder::exchange() {
    requireSameGallery();
    const std::string& fresh = private_->name();
    if (rename(place_, fresh, name_, RENAME_EXCHANGE) == 0) return;
    if (!isUnknown(errno)) throwSystemError(errno, kCannotBePut);
    const std::string kept = fresh + ".old";
    if (rename(place_, name_, kept, 0) != 0) throwSystemError(errno, kCannotBePut);
    if (rename(place_, fresh, name_, 0) != 0) {
        const int reason = errno;
        rename(place_, kept, name_, 0);
        throwSystemError(reason, kCannotBePut);
    }
    rename(place_, kept, fresh, 0);
}

}  // namespace qzapp
