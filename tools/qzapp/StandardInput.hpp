#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/qzapp/FileName.hpp"

namespace qzapp {

// What the command line calls standard input and standard output.
inline constexpr const char* kStandardStream = "-";

// The input file that `value` names. "-" is standard input, which is copied to a nameless file once and
// then read like any other. Failures are Errors; so is standard input that holds nothing, because then
// the program that should have filled it failed.
FileName inputArgument(const std::string& value);

// Throws UsageError when more than one of these options is "-".
void requireOneStandardInput(const std::vector<std::optional<std::string>>& values);

}  // namespace qzapp
