#pragma once

#include <optional>
#include <string>
#include <vector>

#include "app/FileName.hpp"
#include "tools/qzapp/cli/Report.hpp"

namespace qzapp {

// What the command line calls standard input and standard output.
inline constexpr const char* kStandardStream = "-";

// The input file that `value` names, held open. "-" is standard input, which is copied to a nameless
// file once and then read like any other. Failures are Errors; so is standard input that holds
// nothing, because then the program that should have filled it failed.
FileName inputArgument(const std::string& value);

// The app to be read that `value` names, held open. Readers know the form of an app by its extension,
// so standard input gets one here: that of a packaged app when it holds a zero byte near its start, as
// zip files do, that of a text app otherwise.
FileName appArgument(const std::string& value);

// Throws UsageError when more than one of these options is "-".
void requireOneStandardInput(const std::vector<std::optional<std::string>>& values);

}  // namespace qzapp
