#include <foundation/Diagnostics.hpp>

#include <cstdio>
#include <cstdlib>

namespace foundation::core::diag {

void fatal(const char* message, const char* sourceName, int line, const char* function) noexcept {
    std::fprintf(stderr, "fatal: %s (%s:%d, in %s)\n", message, sourceName, line, function);
    std::abort();
}

}  // namespace foundation::core::diag
