#pragma once

#include <fl/FileDescriptor.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qzapp {

// Bytes in memory that another program can open as a file.
class MemoryFile {
public:
    // Throws std::system_error when there is no room.
    explicit MemoryFile(std::string_view bytes);
    // Its name, in this process and in those that it starts.
    std::string name() const;

private:
    fl::filesystem::FileDescriptor file_;
};

struct ProgramEnd {
    int status;          // the exit status; -1 when a signal ended it
    std::string output;  // what it wrote to standard output
};

// Runs a program that PATH leads to, without a shell and with nothing on standard input, and waits for
// it. Nothing when there is no such program. Throws std::system_error when it cannot be run.
std::optional<ProgramEnd> runProgram(const std::vector<std::string>& command);

}  // namespace qzapp
