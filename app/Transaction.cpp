#include "app/Transaction.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <stdio.h>
#include <unistd.h>
#include <fl/ReplacementFile.hpp>
#include <fl/Retry.hpp>
#include <fl/SystemCalls.hpp>

#include <cerrno>
#include <cstddef>
#include <span>
#include <string>
#include <system_error>

#include "app/Error.hpp"
#include "app/InputFiles.hpp"
#include "app/SignalsBlocked.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;

// The extension with its dot.
std::string extensionOf(const fl::filesystem::path& file) {
    const std::string name =
        fl::filesystem::detail::make_native_access_form_i18n(fl::filesystem::path(file.filename()));
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos ? "" : name.substr(dot);
}

[[noreturn]] void throwNoFile(int reason) {
    throw std::system_error(reason, std::generic_category(), fl::filesystem::kCannotCreateFile);
}

}  // namespace

Transaction::Transaction(const FileName& target, Start start, const std::string& extension)
    : target_(target) {
    about(target_, [&] {
        saveTarget_.emplace(target_.path);
        createFolder(extension.empty() ? extensionOf(saveTarget_->resolved()) : extension);
    });
    if (start == Start::New && saveTarget_->stamp())
        throw Error(target_.shown, fl::filesystem::kChangedMeanwhile);
    if (start == Start::ContentOfTarget) {
        takeContentOfTarget();
    } else {
        about(target_, [&] { createWorkingFile(); });
    }
}

void Transaction::takeContentOfTarget() {
    source_ = openFile({target_.shown, saveTarget_->resolved()});
    about(target_, [&] {
        if (linkWorkingFile()) return;
        createWorkingFile();
        file_.copyFrom(source_, 0, source_.stamp().size, 0);
    });
}

void Transaction::createFolder(const std::string& extension) {
    const auto parent = fl::filesystem::canonical(saveTarget_->resolved().parent());
    const std::string name = fl::filesystem::detail::make_native_access_form_i18n(parent);
    directory_ = FileDescriptor(fl::filesystem::retryInterrupted(
        [&] { return ::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!directory_) throwNoFile(errno);
    folder_.emplace(directory_, 0700);
    workingName_ = "working" + extension;
    working_ = {
        target_.shown,
        fl::filesystem::path::fromBytes(fmt::format("{}/{}", nameOfFolder(name), workingName_)),
        nullptr, target_.isStream};
}

// Names the folder through its descriptor, so that no other folder or link can take its place while
// the steps use the name. Without /proc, by its path.
std::string Transaction::nameOfFolder(const std::string& parent) const {
    std::string opened = fmt::format("/proc/self/fd/{}", folder_->descriptor().get());
    if (::access(opened.c_str(), X_OK) == 0) return opened;
    return fmt::format("{}/{}", parent, folder_->name());
}

// Links the file that was opened, not whatever its name leads to by now. Returns false if it cannot
// be linked: the file system has no hard links, the file is another user's, or its last name was
// just removed.
bool Transaction::linkWorkingFile() const {
    const std::string self = fmt::format("/proc/self/fd/{}", source_.get());
    const int folder = folder_->descriptor().get();
    if (fl::filesystem::retryInterrupted([&] {
            return fl::filesystem::systemCalls().linkat(AT_FDCWD, self.c_str(), folder,
                                                        workingName_.c_str(), AT_SYMLINK_FOLLOW);
        }) == 0) {
        return true;
    }
    const bool mustCopy = errno == EPERM || errno == EACCES || errno == ENOENT || errno == EXDEV ||
                          errno == EMLINK || errno == EOPNOTSUPP || errno == ENOSYS;
    if (!mustCopy) throwNoFile(errno);
    return false;
}

void Transaction::createWorkingFile() {
    file_ = newFile(workingName_);
}

FileDescriptor Transaction::newFile(const std::string& name) const {
    FileDescriptor file(fl::filesystem::retryInterrupted([&] {
        return fl::filesystem::systemCalls().openat(folder_->descriptor().get(), name.c_str(),
                                                    O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    }));
    if (!file) throwNoFile(errno);
    return file;
}

void Transaction::replaceWorkingFile(const std::string& name) const {
    const int folder = folder_->descriptor().get();
    if (::renameat(folder, name.c_str(), folder, workingName_.c_str()) != 0)
        fl::filesystem::throwSystemError(errno, "cannot rename a file in its directory");
}

void Transaction::write(std::string_view bytes, std::uint64_t offset) {
    about(target_, [&] { file_.writeAt(std::as_bytes(std::span(bytes)), offset); });
}

void Transaction::commit() {
    // A new file gets its mode from an empty file that is made to find the mode out. On some file
    // systems that file has a name for a moment, and a signal would leave it behind.
    std::optional<SignalsBlocked> blocked;
    if (!saveTarget_->stamp()) blocked.emplace();
    about(target_, [&] { fl::filesystem::replaceWithFile(*saveTarget_, working_.path); });
}

}  // namespace qzapp
