#pragma once

#include <foundation/Export.hpp>

#include <fl/FileDescriptor.hpp>

namespace fl::filesystem {

// Gives `to` the owner, mode, access list and extended attributes of `from`. Owner and group are
// kept where the system permits it and are otherwise the caller's; attributes of security modules
// likewise. Anything else that cannot be kept throws std::system_error, whose text names it.
PLATFORM_API void copyAttributes(const FileDescriptor& from, FileDescriptor& to);

}  // namespace fl::filesystem
