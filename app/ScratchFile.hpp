#pragma once

#include <fl/FileDescriptor.hpp>

#include <string>

namespace qzapp {

// Makes an empty file without a name, open for reading and writing, which disappears when it is
// closed. It is in the folder for temporary files: TMPDIR, or "/tmp". `shown` is what messages call
// its content. Throws the Error of throwNotKept() if the file cannot be made.
fl::filesystem::FileDescriptor makeScratchFile(const std::string& shown);
// Opens the folder for temporary files, for a PrivateFolder. Throws the Error of throwNotKept().
fl::filesystem::FileDescriptor openScratchPlace(const std::string& shown);
// Throws the Error that `shown` cannot be kept in the folder for temporary files, and why.
[[noreturn]] void throwNotKept(const std::string& shown, const std::string& reason);

}  // namespace qzapp
