#pragma once

#include <string>

namespace qzapp {

// How a front end shows what a user should know although nothing failed. Without one nothing is shown.
using ShowWarning = void (*)(const std::string& message);
void setWarnings(ShowWarning show) noexcept;

void warn(const std::string& message);

}  // namespace qzapp
