#pragma once

#include <string>

namespace qzapp {

// A front end's function that shows a warning. Any thread may call it.
using ShowWarning = void (*)(const std::string& message);
// Called once by the front end at its start; until then, warnings are not shown.
void setWarnings(ShowWarning show) noexcept;

// Shows what the user should know although nothing failed.
void warn(const std::string& message);

}  // namespace qzapp
