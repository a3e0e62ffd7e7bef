#pragma once

#include <functional>
#include <string>

#include "tools/qzapp/cli/Cage.hpp"

namespace qzapp {

// Runs `work` in a child process that enters the cage first, and returns its result. A verb uses it if it
// afterwards has to do something that the cage forbids. If `work` throws, this throws std::bad_alloc or a
// std::runtime_error with the same text; it also throws if a signal ends the child. The child shares the
// standard streams and is killed if this process ends. Call it before the first thread starts.
std::string inCage(Cage& cage, const std::function<std::string()>& work);

}  // namespace qzapp
