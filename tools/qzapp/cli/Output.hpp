#pragma once

#include <string_view>

#include "app/FileName.hpp"
#include "tools/qzapp/cli/Report.hpp"

namespace qzapp {

// Writes `text` to standard output, all of it. Throws OutputError when that fails, so that a full
// disk or a reader that went away is never taken for success.
void print(std::string_view text);

// Prints what was done once it is saved as `saved`. Throws ReportError, which says so, instead.
void printReport(const FileName& saved, std::string_view text);

}  // namespace qzapp
