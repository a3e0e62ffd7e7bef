#pragma once

#include <foundation/Export.hpp>

#include <chrono>
#include <optional>

namespace foundation::clock {

using Seconds = std::chrono::sys_seconds;

// Both functions may be called from any thread.

// The time to write into files, in UTC: the system's clock, or the time that set() has fixed.
PLATFORM_API Seconds now();

// Fixes now() for the whole process, so that the same calls write the same bytes; nullopt returns
// to the system's clock.
PLATFORM_API void set(std::optional<Seconds> fixed);

}  // namespace foundation::clock
