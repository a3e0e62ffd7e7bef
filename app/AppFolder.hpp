#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/FileName.hpp"

namespace qzapp {

// Is told what cannot be done.
using Complain = std::function<void(const std::string&)>;

// A folder that cannot be listed, or not to its end, and why.
struct UnlistedFolder {
    std::string name;
    std::string reason;
};

// All below a folder that may be apps, by name.
struct AppsBelow {
    std::vector<std::string> files;
    std::vector<UnlistedFolder> unlisted;
};

bool isFolder(const std::string& name);

// The names of all files in a folder and those below it that may be apps: packaged apps and sources, also
// links that lead to nothing. Symbolic links to folders and hidden files and folders (".git") are left out.
// Throws Error when the folder itself cannot be listed.
AppsBelow appsBelow(const FileName& folder);

// Whether a file of any name holds the metadata of a text app, and is not a page of some markup.
bool isTextApp(const FileName& file);

// One of these, held open; nothing when it is a source that holds no app metadata.
std::optional<FileName> openListed(const std::string& name);

}  // namespace qzapp
