#pragma once

#include <string>

namespace appserialization {

// Text, in UTF-16 code units: file names, metadata values, code and format names. It need not be
// valid UTF-16; functions that need that say what they throw.
using ustring = std::u16string;

}  // namespace appserialization
