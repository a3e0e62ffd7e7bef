#pragma once

#include <string>

namespace appserialization {

// Every file name, metadata value, code text and format name: UTF-16 code units.
using ustring = std::u16string;

}  // namespace appserialization
