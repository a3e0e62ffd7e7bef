#pragma once

#include <foundation/Export.hpp>

#include <sys/types.h>

namespace foundation {

// Remembers the process in which it was made. A forked child has copies of all objects, among them
// of those that write files or wait for threads, but the files and the threads are still its
// parent's.
class PLATFORM_API ProcessMark {
public:
    ProcessMark() noexcept;
    // False in a child, even if it has the number of its parent, as the first processes of two
    // containers have, and even if it was made without fork().
    bool isOfThisProcess() const noexcept;

private:
    pid_t number_;
    unsigned forks_;  // how many forks lie between the first process of the program and this one
    unsigned generation_;  // the same for processes however they were made, if the kernel tells
};

}  // namespace foundation
