#include "platform/foundation/src/fl/SavePlace.hpp"

#include <fl/FileAttributes.hpp>
#include <fl/ReplacementFile.hpp>
#include <fl/Retry.hpp>
#include <fl/SystemCalls.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>

namespace fl::filesystem {

namespace {

constexpr int kMaxLinks = 40;  // as many as the system follows

std::string parentOf(const std::string& file) {
    const std::size_t slash = file.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : file.substr(0, slash);
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

FileDescriptor openStart(const path& given) {
    if (given.native().starts_with(u'/')) return {};
    FileDescriptor opened(retryInterrupted(
        [] { return systemCalls().openat(AT_FDCWD, ".", O_PATH | O_DIRECTORY | O_CLOEXEC, 0); }));
    if (!opened) throwSystemError(errno, "cannot open the working directory");
    return opened;
}

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

}  // namespace fl::filesystem
