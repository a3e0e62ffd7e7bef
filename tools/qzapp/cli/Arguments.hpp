#pragma once

#include <foundation/ustring.hpp>

#include <string>
#include <vector>

#include "app/Fields.hpp"
#include "app/FileName.hpp"
#include "tools/qzapp/cli/Report.hpp"

namespace qzapp {

// Arguments as text. Bytes that are not valid UTF-8 are a UsageError, never replaced.
foundation::ustring textArgument(const std::string& option, const std::string& value);
FileName fileArgument(const std::string& value);

// A metadata field by its name. Anything else is a UsageError.
Field fieldArgument(const std::string& option, const std::string& name);
// The names that there are, on several lines for the help of a verb.
std::string fieldHelp();

// A file to be made, whose name must end in ".kvpkg".
FileName newPackageArgument(const std::string& value);

// Throws unless nothing has this name, not even a dangling link, or `force` allows to replace it.
void requireAbsent(const FileName& file, bool force);

// Throws where a file that is made would take the place, by whatever link, of one of those that are read
// for it and held open, or of the one that standard input comes from.
void requireNoInput(const FileName& out, const std::vector<FileName>& inputs);

}  // namespace qzapp
