#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/qzapp/FileName.hpp"

namespace qzapp {

bool isFolder(const std::string& name);

// The names of all apps in a folder and those below it, by name: packaged apps, and sources that hold
// app metadata. Symbolic links to folders and hidden files and folders (".git") are left out. What
// cannot be listed is told to `complain` and left out.
std::vector<std::string> appsBelow(const FileName& folder,
                                   const std::function<void(const std::string&)>& complain);

}  // namespace qzapp
