#pragma once

#include <foundation/Export.hpp>

namespace foundation::core::diag {

// Reports a fault of the program itself, a state that its logic excludes, on standard error and
// aborts the process. Bad input never leads here: that gets an exception.
[[noreturn]] PLATFORM_API void fatal(const char* message, const char* sourceName, int line,
                                     const char* function) noexcept;

}  // namespace foundation::core::diag
