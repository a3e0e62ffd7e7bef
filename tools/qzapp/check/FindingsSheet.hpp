#pragma once

#include <string>

#include "app/FileName.hpp"
#include "app/check/Findings.hpp"

namespace qzapp {

// What "qzapp check" prints for a file: "atlas.kvpkg: 1 error, 2 warnings", then each finding.
std::string sheetOf(const FileName& file, const Findings& findings);
// What "qzapp check --rules" prints: the table of the rules.
std::string rulesSheet();

}  // namespace qzapp
