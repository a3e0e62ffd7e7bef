#pragma once

#include <foundation/Export.hpp>

#include <chrono>
#include <optional>

namespace foundation::clock {

using Seconds = std::chrono::sys_seconds;

// The time that saved files carry: the system's clock, or what the program has set. Safe from any
// thread.
PLATFORM_API Seconds now();

// Fixes now() for the whole process, so that the same calls give the same bytes; nullopt goes back
// to the system's clock.
PLATFORM_API void set(std::optional<Seconds> fixed);

}  // namespace foundation::clock
