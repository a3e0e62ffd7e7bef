#pragma once

#include <fl/FileDescriptor.hpp>

#include <chrono>
#include <cstdint>
#include <string>

namespace qzapp {

// Confines this process to the files that it needs. A verb that only reads makes a cage, adds what
// it will still open by name, and enters the cage before it looks at what a file holds. If a
// malicious file then takes over the process, it cannot open, create or remove other files, start
// programs, use TCP, or reach other processes by signals or abstract sockets. Files that are open
// already stay usable, so a verb that holds its input open adds nothing.
//
// enter() confines the calling thread and all threads and processes that it starts later, so call
// it before the first of those. There is no way out. The kernel's Landlock does the work: older
// kernels confine less, without any message. Without Landlock, enter() only keeps started programs
// from gaining privileges.
class Cage {
public:
    // Like all members, throws std::system_error if the kernel has Landlock but a call of it fails.
    Cage();

    // Allows reading a file, or listing a folder and reading everything below it. A link is
    // followed now; a name that leads nowhere is ignored.
    void mayRead(const std::string& name);
    // Allows reading, writing, creating, renaming and removing everything below an open folder.
    void mayChange(const fl::filesystem::FileDescriptor& folder);
    // Allows renaming the folders below an open folder, without moving them elsewhere, and removing
    // empty ones.
    void mayRenameFoldersIn(const fl::filesystem::FileDescriptor& folder);

    void enter();

private:
    void allow(int file, std::uint64_t rights);

    int version_;
    fl::filesystem::FileDescriptor rules_;  // none if the kernel does not confine
};

// What a cage confines on this kernel, as one line for users.
std::string describeConfinement();

// Lets SIGXCPU end the process when it has used so much processor time. A lower limit stays.
void limitProcessorTime(std::chrono::seconds time);

// Lets allocations fail once this process has taken so many bytes of memory more than now. A lower
// limit stays.
void limitMemory(std::uint64_t bytes);

}  // namespace qzapp
