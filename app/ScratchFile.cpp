#include "app/ScratchFile.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "app/Error.hpp"
#include "app/SignalsBlocked.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;

std::string temporaryFolder() {
    const char* named = std::getenv("TMPDIR");
    return named != nullptr && *named != '\0' ? named : "/tmp";
}

}  // namespace

FileDescriptor makeScratchFile(const std::string& shown) {
    const std::string folder = temporaryFolder();
    FileDescriptor file(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (file) return file;
    // Not every file system has files without a name.
    const SignalsBlocked blocked;
    std::string name = folder + "/qzapp-XXXXXX";
    file = FileDescriptor(::mkostemp(name.data(), O_CLOEXEC));
    if (!file) throwNotKept(shown, std::generic_category().message(errno));
    ::unlink(name.c_str());
    return file;
}

FileDescriptor openScratchPlace(const std::string& shown) {
    FileDescriptor place(::open(temporaryFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!place) throwNotKept(shown, std::generic_category().message(errno));
    return place;
}

void throwNotKept(const std::string& shown, const std::string& reason) {
    throw Error(shown,
                fmt::format("cannot be kept in {} ({}); name a folder with room in TMPDIR",
                            temporaryFolder(), reason),
                Error::Cause::Passing);
}

}  // namespace qzapp
