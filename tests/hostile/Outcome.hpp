#pragma once

#include <string>
#include <vector>

namespace hostile {

// All that the library's readers give out of a file, or say about it, a line each: "model: ...".
// The file is called FILE. Something is written to `scratch`.
using Outcome = std::vector<std::string>;
Outcome readEverything(const std::u16string& file, const std::u16string& scratch);

// The lines of `to` that are not in `from`, and the parts of `from` that `to` does not have; a file
// that does not open has one line only.
std::string difference(const Outcome& from, const Outcome& to);

}  // namespace hostile
