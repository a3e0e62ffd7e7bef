#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/FileName.hpp"
#include "tools/qzapp/cli/Cage.hpp"

namespace qzapp {

// Lets the cage read everything below a folder, and the targets of those of its `files` that are links.
void letRead(Cage& cage, const std::string& folder, const std::vector<std::string>& files);

// Confines this process to what is named (see Cage), then runs `action` on each named file, held open,
// and for a folder on each app below it. "-" is standard input. An Error, a folder without an app
// included, is reported and does not stop the others; only an OutputError passes. Returns kDone if
// nothing was reported and every `action` returned kDone, otherwise kFailed.
int forEachApp(const std::vector<std::string>& names,
               const std::function<int(const FileName&)>& action);

}  // namespace qzapp
