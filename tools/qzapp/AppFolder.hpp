#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/qzapp/FileName.hpp"

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

// Runs `action` on each file that is named, and instead of folders on the apps below them, of which
// there must be some. An Error is reported and does not stop the others, but for OutputError. Returns
// kFailed when there was one or `action` returned anything but kDone, otherwise kDone.
int forEachApp(const std::vector<std::string>& names,
               const std::function<int(const FileName&)>& action);

}  // namespace qzapp
