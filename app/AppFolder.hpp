#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/FileName.hpp"

namespace qzapp {

// Receives an error message and carries on.
using Complain = std::function<void(const std::string&)>;

// A folder that could not be listed completely, or something in a folder of which the system did
// not say what it is, and the reason, as an error message puts it.
struct Unlisted {
    std::string name;
    std::string reason;
};

// What a walk over a folder found, each list in the order of names.
struct AppsBelow {
    std::vector<std::string> files;
    std::vector<Unlisted> unlisted;
};

// Whether the name leads to a directory, also through symbolic links.
bool isFolder(const std::string& name);

// Walks over a folder and all folders below it, and returns the files whose names end in ".kvpkg"
// (in any case) or ".k". Dangling symbolic links and files that may not be opened are among them,
// so that the caller reports them. Symbolic links to folders and hidden files and folders (".git")
// are left out. No file is opened: use openListed() to drop the sources that are not apps. Throws
// Error if `folder` itself cannot be listed; what is below it and cannot be looked at or listed is
// in `unlisted`.
AppsBelow appsBelow(const FileName& folder);

// Whether a file of any name is a text app: it holds the marker of an app section, and its first
// character is not "<" (a page that quotes a text app is not one). Reads the whole file.
bool isTextApp(const FileName& file);

// Opens and holds a file that appsBelow() returned. Nothing if it is a source without app metadata.
// A source that cannot be read is returned, so that reading it reports why. Throws Error if it
// cannot be opened.
std::optional<FileName> openListed(const std::string& name);

}  // namespace qzapp
