#include <foundation/Clock.hpp>

#include <atomic>
#include <limits>

namespace foundation::clock {

namespace {

using Count = Seconds::rep;

// Stands for the system's clock. An atomic word with a value that no file's time has is simpler
// than an optional and a lock.
constexpr Count kRunning = std::numeric_limits<Count>::min();
constinit std::atomic<Count> fixedTime{kRunning};

}  // namespace

Seconds now() {
    const Count count = fixedTime.load(std::memory_order_relaxed);
    if (count != kRunning) return Seconds(std::chrono::seconds(count));
    return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
}

void set(std::optional<Seconds> fixed) {
    fixedTime.store(fixed ? fixed->time_since_epoch().count() : kRunning,
                    std::memory_order_relaxed);
}

}  // namespace foundation::clock
