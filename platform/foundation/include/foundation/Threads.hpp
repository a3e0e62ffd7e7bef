#pragma once

#include <foundation/Export.hpp>

#include <cstddef>
#include <functional>

namespace foundation::threads {

// The most threads that these libraries keep busy at one time in the whole process, counting one
// thread that called them. The default is the number of processors that the process may use
// (its affinity mask and the quota of its control group), and at most 8.
PLATFORM_API unsigned limit() noexcept;

// The highest limit.
inline constexpr unsigned kMostThreads = 256;

// Sets the limit for calls that begin later: 1 keeps the libraries from starting threads at all,
// 0 goes back to the default, and what is above kMostThreads counts as that. Safe from any thread.
PLATFORM_API void setLimit(unsigned most) noexcept;

// Work on a sequence of items, in three stages. feed() and take() run on the calling thread, for
// one item after the other; work() runs on the calling thread and on helpers, for several items at
// once.
//
// Each stage is given a slot, a number below `slots`. An item keeps its slot from feed() to take(),
// and the caller keeps the item's data in an array with that many elements, so memory does not grow
// with the number of items.
struct PLATFORM_API Pipeline {
    std::size_t slots = 1;
    // How many items work() may run for at one time. With 1 it sees them in order, one by one,
    // while the calling thread feeds and takes others.
    std::size_t workers = static_cast<std::size_t>(-1);

    // Puts the next item into the slot, or returns false if there is none.
    std::function<bool(std::size_t slot)> feed;
    std::function<void(std::size_t slot)> work;
    std::function<void(std::size_t slot)> take;

    // Returns when every item has been taken. Helpers live no longer than this call. They handle no
    // signals, and are not needed: if the limit leaves none, or none can be started, the calling
    // thread does everything. An exception of work() is thrown when its item would be taken, that
    // of another stage at once, in both cases after the items in work are finished; later items are
    // not taken. Throws std::runtime_error in a child that feed() or take() has forked; work() must
    // not fork.
    void run() const;
};

}  // namespace foundation::threads
