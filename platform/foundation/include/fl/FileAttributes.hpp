#pragma once

#include <foundation/Export.hpp>

#include <fl/FileDescriptor.hpp>

#include <sys/stat.h>

#include <optional>
#include <string>

namespace fl::filesystem {

// Gives `to` the owner, mode, access list and extended attributes of `from`. Owner and group are
// kept where the system permits it and are otherwise the caller's; attributes of security modules
// likewise. Anything else that cannot be kept throws std::system_error, whose text names it.
PLATFORM_API void copyAttributes(const FileDescriptor& from, FileDescriptor& to);

// The status of a name in a directory, its last link not followed; nullopt when there is no such name.
// Throws std::system_error when that cannot be told.
PLATFORM_API std::optional<struct stat> find(const FileDescriptor& directory,
                                             const std::string& name);

}  // namespace fl::filesystem
