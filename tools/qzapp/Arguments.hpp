#pragma once

#include <foundation/ustring.hpp>

#include <string>

#include "tools/qzapp/FileName.hpp"

namespace qzapp {

// Arguments as text. Bytes that are not valid UTF-8 are a UsageError, never replaced.
foundation::ustring textArgument(const std::string& option, const std::string& value);
FileName fileArgument(const std::string& value);

// A file to be made, whose name must end in ".kvpkg".
FileName newPackageArgument(const std::string& value);

}  // namespace qzapp
