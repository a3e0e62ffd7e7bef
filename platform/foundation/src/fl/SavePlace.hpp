#pragma once

#include <fl/FileDescriptor.hpp>
#include <fl/filesystem.hpp>

#include <sys/stat.h>

#include <optional>
#include <string>

// Where a save goes: what the name that was given leads to, link by link.
namespace fl::filesystem {

inline constexpr const char* kNotRegularFile = "is not a regular file (save under another name)";

// Where a name leads after its symbolic links have been followed.
struct Place {
    std::string path;
    FileDescriptor directory;
    std::string name;                  // in the directory
    std::optional<struct stat> found;  // what is there, if anything
    bool isLinked = false;             // whether a symbolic link led here
};

// The working directory, so that a relative name means the same later; empty for an absolute name.
FileDescriptor openStart(const path& given);
// Follows the links of the last component. The system could not do this for us, because a dangling
// link has to lead to the place where its target will be created.
Place follow(const path& given, const FileDescriptor& start);
// Throws unless the system reaches the same file through the links as follow() did. The text of a
// link in /proc need not be the name of what it leads to: the file of "/proc/self/fd/7" may have
// been removed, may never have had a name, or may have it where this process cannot see it. A save
// must not create or replace another file instead.
void requireWhatLinkLeadsTo(Place& place, const path& given, const FileDescriptor& start);

}  // namespace fl::filesystem
