#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/FileName.hpp"
#include "tools/qzapp/cli/Report.hpp"

namespace qzapp {

// Runs `action` on each file that is named, and instead of folders on the apps below them, of which
// there must be some. An Error is reported and does not stop the others, but for OutputError. Returns
// kFailed when there was one or `action` returned anything but kDone, otherwise kDone.
int forEachApp(const std::vector<std::string>& names,
               const std::function<int(const FileName&)>& action);

}  // namespace qzapp
