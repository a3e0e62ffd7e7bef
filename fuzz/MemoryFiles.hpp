#pragma once

#include <cstddef>
#include <string>

// A directory in memory for the files that a target lets the library read and save. It stands
// behind fl::filesystem::systemCalls(), so the library does all that it would do with a file
// system, without the cost of system calls. Streams and names outside of the directory go to the
// system as always. A call that the directory cannot answer ends the process, so no save fails for
// lack of an answer. It may be used from one thread only.
namespace fuzz::memory {

// The name by which the library finds a file of the directory.
std::u16string name(const std::string& file);
// Makes the file, or a new one in its place, and returns the name by which the library finds it.
std::u16string write(const std::string& file, const std::string& bytes);
// The content of a file, which must exist.
const std::string& bytes(const std::string& file);

std::size_t countFiles();
// How many of its files are open, and how often the directory is.
std::size_t countOpen();

}  // namespace fuzz::memory
