#pragma once

#include <cstddef>
#include <string>

// A directory in memory, for the files that a target has the library read and save. It stands behind
// fl::filesystem::systemCalls(), so the library does all that it does with a file system, and an
// execution need not ask the system for it. What goes another way (streams), and names outside of the
// directory, are the system's as ever. Calls that it does not know how to answer end the process, so that
// no save fails for want of it. From one thread only.
namespace fuzz::memory {

// The name by which the library finds a file of the directory.
std::u16string name(const std::string& file);
// Makes the file, or a new one in its place; returns its name as the library takes it.
std::u16string write(const std::string& file, const std::string& bytes);
// The file must be there.
const std::string& bytes(const std::string& file);

std::size_t countFiles();
// Files and directories of here that are open.
std::size_t countOpen();

}  // namespace fuzz::memory
