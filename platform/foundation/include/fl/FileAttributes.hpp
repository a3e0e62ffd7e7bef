#pragma once

#include <foundation/Export.hpp>

#include <fl/FileDescriptor.hpp>

#include <sys/stat.h>

#include <optional>
#include <string>

namespace fl::filesystem {

// Gives `to` the owner, group, mode, access list and extended attributes of `from`. If the system
// does not let this user set the owner or the group, the file keeps the one that it has, and loses
// the set-user-ID and set-group-ID bits. If that is another group, it and all others get the rights
// that both of them have in `from`, so that no member of either group gets more than before.
// Attributes named "security.*" and "trusted.*" are copied as far as the system permits, except
// digests of the content, which would not fit the new content. Throws std::system_error, whose text
// names the owner, the mode or the attribute, if anything else cannot be kept; `to` may then have
// some of it.
PLATFORM_API void copyAttributes(const FileDescriptor& from, FileDescriptor& to);

// The status of `name` in `directory`. A symbolic link with this name is not followed. Returns
// nullopt if there is no such name, and throws std::system_error if the system cannot say.
PLATFORM_API std::optional<struct stat> find(const FileDescriptor& directory,
                                             const std::string& name);

}  // namespace fl::filesystem
