#include "tools/qzapp/Transaction.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

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

std::string privateNameBeside(const fl::filesystem::path& target) {
    static std::random_device random;
    const std::string directory =
        fl::filesystem::detail::make_native_access_form_i18n(target.parent());
    return fmt::format("{}/.qzapp-{}-{:08x}{}", directory, ::getpid(), random(),
                       extensionOf(target));
}

}  // namespace

Transaction::Transaction(const FileName& target, Start start) : target_(target) {
    about(target_, [&] {
        saveTarget_.emplace(target.path);
        createWorkingFile();
    });
    try {
        if (start == Start::CopyOfTarget) {
            const FileDescriptor source = openFile({target.shown, saveTarget_->resolved()});
            about(target_, [&] { saveTarget_->expect(source.stamp()); });
            copyFrom(source);
        }
    } catch (...) {
        leftover_->remove();
        throw;
    }
}

Transaction::~Transaction() {
    if (leftover_) leftover_->remove();
}

void Transaction::createWorkingFile() {
    for (int tries = 0; tries < kMaxNameTries; ++tries) {
        leftover_.emplace(privateNameBeside(saveTarget_->resolved()));
        const char* name = leftover_->path().c_str();
        const int opened = ::open(name, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (opened >= 0) {
            file_ = FileDescriptor(opened);
            working_ = {target_.shown, fl::filesystem::path::fromBytes(leftover_->path())};
            return;
        }
        const int reason = errno;
        leftover_.reset();
        if (reason != EEXIST) {
            throw std::system_error(reason, std::generic_category(),
                                    "no file can be made in its directory");
        }
    }
    throw std::system_error(EEXIST, std::generic_category(),
                            "no file can be made in its directory");
}

void Transaction::write(std::string_view bytes) {
    about(target_, [&] { file_.writeAt(std::as_bytes(std::span(bytes)), 0); });
}

void Transaction::copyFrom(const FileDescriptor& source) {
    about(target_, [&] { file_.copyFrom(source, 0, source.stamp().size, 0); });
}

void Transaction::commit() {
    about(working_, [&] { fl::filesystem::replaceWithSibling(*saveTarget_, working_.path); });
    leftover_.reset();
}

}  // namespace qzapp
