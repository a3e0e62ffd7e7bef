#pragma once

#include <foundation/Export.hpp>

namespace foundation::core::diag {

// Reports a state that the program's logic excludes, on standard error, and aborts the process.
[[noreturn]] PLATFORM_API void fatal(const char* message, const char* sourceName, int line,
                                     const char* function) noexcept;

}  // namespace foundation::core::diag
