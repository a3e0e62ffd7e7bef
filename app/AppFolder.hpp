#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/FileName.hpp"

namespace qzapp {

// Is told what cannot be done.
using Complain = std::function<void(const std::string&)>;

bool isFolder(const std::string& name);

// The names of all files in a folder and those below it that may be apps, by name: packaged apps and
// sources. Symbolic links to folders and hidden files and folders (".git") are left out. What cannot be
// listed is told to `complain` and left out.
std::vector<std::string> appsBelow(const FileName& folder, const Complain& complain);

// One of these, held open; nothing when it is a source that holds no app metadata.
std::optional<FileName> openListed(const std::string& name);

}  // namespace qzapp
