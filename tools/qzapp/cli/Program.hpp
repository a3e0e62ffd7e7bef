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
    // Makes an empty file. All members throw std::system_error if there is no room.
    MemoryFile();
    void fill(std::string_view bytes);
    std::string content() const;
    std::string name() const;
    int get() const noexcept { return file_.get(); }

private:
    fl::filesystem::FileDescriptor file_;
};

struct ProgramEnd {
    std::string name;    // of the program
    int status;          // the exit status; -1 if a signal ended it
    std::string output;  // what it wrote to standard output
    std::string errors;  // what it wrote to standard error

    // Why it failed, for messages: its name, and its last line of errors or else its status.
    std::string failure() const;
};

// A program that can be run any number of times after this process has entered its cage. The
// constructor forks a process that waits outside the cage and starts nothing but the given
// commands. Members throw std::system_error.
class Program {
public:
    // `commands` are alternatives: run() takes the first one whose program is found in PATH. Make
    // this object before the first thread starts.
    explicit Program(std::vector<std::vector<std::string>> commands);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Runs the program and waits for its end. It is started without a shell, with /dev/null as its
    // standard input. Returns nothing if none of the programs is installed.
    std::optional<ProgramEnd> run();

private:
    [[noreturn]] void serve(const fl::filesystem::FileDescriptor& requests,
                            const fl::filesystem::FileDescriptor& answers) const;

    std::vector<std::vector<std::string>> commands_;
    MemoryFile output_, errors_;
    fl::filesystem::FileDescriptor requests_, answers_;
    int process_ = -1;
};

}  // namespace qzapp
