#pragma once

#include <string>

#include "app/FileName.hpp"
#include "app/check/Findings.hpp"

namespace qzapp {

// A finding as a command that GitHub Actions shows as an annotation of the file, on a line.
std::string annotationOf(const std::string& file, const Finding& finding);
// The annotations of all findings of at least this severity.
std::string annotationsOf(const FileName& file, const Findings& findings, Severity least);

}  // namespace qzapp
