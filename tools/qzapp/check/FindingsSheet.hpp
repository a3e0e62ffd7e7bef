#pragma once

#include <string>

#include "app/FileName.hpp"
#include "app/check/Findings.hpp"

namespace qzapp {

// "atlas.kvpkg: 1 error, 2 warnings", then each finding.
std::string sheetOf(const FileName& file, const Findings& findings);
// The table of the rules.
std::string rulesSheet();

}  // namespace qzapp
