#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/qzapp/FileName.hpp"

namespace qzapp {

// Is told what cannot be done.
using Complain = std::function<void(const std::string&)>;

bool isFolder(const std::string& name);

// The names of all apps in a folder and those below it, by name: packaged apps, and sources that hold
// app metadata. Symbolic links to folders and hidden files and folders (".git") are left out. What
// cannot be listed is told to `complain` and left out.
std::vector<std::string> appsBelow(const FileName& folder, const Complain& complain);

// The files that are named, and instead of folders the apps below them, of which there must be some.
std::vector<std::string> filesOf(const std::vector<std::string>& names, const Complain& complain);

}  // namespace qzapp
