#pragma once

#include <fl/FileDescriptor.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qzapp {

// A file in memory that this process and the programs that it starts can open by name, as long as
// this object lives.
class MemoryFile {
public:
    // Throws std::system_error if the file cannot be made.
    explicit MemoryFile(std::string_view bytes);
    std::string name() const;

private:
    fl::filesystem::FileDescriptor file_;
};

struct ProgramEnd {
    int status;          // the exit status; -1 if a signal ended it
    std::string output;  // what it wrote to standard output
};

// Runs a program and waits for its end. It is looked up in PATH and started without a shell, with
// /dev/null as its standard input. Returns nothing if there is no such program; throws
// std::system_error if it cannot be run.
std::optional<ProgramEnd> runProgram(const std::vector<std::string>& command);

}  // namespace qzapp
