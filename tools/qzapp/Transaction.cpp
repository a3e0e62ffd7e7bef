#include "tools/qzapp/Transaction.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <fl/Retry.hpp>
#include <fl/SystemCalls.hpp>

#include <cerrno>
#include <random>
#include <span>
#include <string>
#include <system_error>

#include "tools/qzapp/Errors.hpp"
#include "tools/qzapp/Files.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;

constexpr int kMaxNameTries = 100;

// Of the last component, with the dot: readers insist on it, in the working file too.
std::string extensionOf(const fl::filesystem::path& file) {
    const std::string name =
        fl::filesystem::detail::make_native_access_form_i18n(fl::filesystem::path(file.filename()));
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos ? "" : name.substr(dot);
}

std::string privateFolderBeside(const fl::filesystem::path& target) {
    std::random_device random;
    const std::string directory =
        fl::filesystem::detail::make_native_access_form_i18n(target.parent());
    return fmt::format("{}/.qzapp-{}-{:08x}", directory, ::getpid(), random());
}

[[noreturn]] void throwNoFile(int reason) {
    throw std::system_error(reason, std::generic_category(),
                            "no file can be made in its directory");
}

}  // namespace

Transaction::Transaction(const FileName& target, Start start) : target_(target) {
    try {
        this->start(start);
    } catch (...) {
        removeLeftovers();
        throw;
    }
}

Transaction::~Transaction() {
    removeLeftovers();
}

void Transaction::removeLeftovers() const noexcept {
    if (workingFile_) workingFile_->remove();
    if (folder_) folder_->remove();
}

void Transaction::start(Start start) {
    about(target_, [&] {
        saveTarget_.emplace(target_.path);
        createFolder();
        nameWorkingFile();
    });
    if (start == Start::Empty) return about(target_, [&] { createWorkingFile(); });
    const FileDescriptor source = openFile({target_.shown, saveTarget_->resolved()});
    about(target_, [&] {
        saveTarget_->expect(source.stamp());
        if (linkWorkingFile(source)) return;
        createWorkingFile();
        copyFrom(source);
    });
}

void Transaction::createFolder() {
    for (int tries = 0; tries < kMaxNameTries; ++tries) {
        folder_.emplace(privateFolderBeside(saveTarget_->resolved()));
        if (::mkdir(folder_->path().c_str(), 0700) == 0) return;
        const int reason = errno;
        folder_.reset();
        if (reason != EEXIST) throwNoFile(reason);
    }
    throwNoFile(EEXIST);
}

void Transaction::nameWorkingFile() {
    workingFile_.emplace(folder_->path() + "/working" + extensionOf(saveTarget_->resolved()));
    working_ = {target_.shown, fl::filesystem::path::fromBytes(workingFile_->path())};
}

// The very file that was opened, whatever its name leads to by now. False where there can be no
// second name: the file system has none, the file is someone else's, or it has just lost its own.
bool Transaction::linkWorkingFile(const FileDescriptor& source) const {
    const std::string self = fmt::format("/proc/self/fd/{}", source.get());
    if (fl::filesystem::retryInterrupted([&] {
            return fl::filesystem::systemCalls().linkat(
                AT_FDCWD, self.c_str(), AT_FDCWD, workingFile_->path().c_str(), AT_SYMLINK_FOLLOW);
        }) == 0) {
        return true;
    }
    const bool mustCopy = errno == EPERM || errno == EACCES || errno == ENOENT || errno == EXDEV ||
                          errno == EMLINK || errno == EOPNOTSUPP || errno == ENOSYS;
    if (!mustCopy) throwNoFile(errno);
    return false;
}

void Transaction::createWorkingFile() {
    const std::string& name = workingFile_->path();
    file_ = FileDescriptor(fl::filesystem::retryInterrupted([&] {
        return fl::filesystem::systemCalls().openat(AT_FDCWD, name.c_str(),
                                                    O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    }));
    if (!file_) throwNoFile(errno);
}

void Transaction::write(std::string_view bytes) {
    about(target_, [&] { file_.writeAt(std::as_bytes(std::span(bytes)), 0); });
}

void Transaction::append(std::string_view bytes) {
    about(target_, [&] { file_.writeAt(std::as_bytes(std::span(bytes)), appended_); });
    appended_ += bytes.size();
}

void Transaction::copyFrom(const FileDescriptor& source) {
    about(target_, [&] { file_.copyFrom(source, 0, source.stamp().size, 0); });
}

void Transaction::commit() {
    about(working_, [&] { fl::filesystem::replaceWithFile(*saveTarget_, working_.path); });
}

}  // namespace qzapp
