#include "tools/qzapp/cli/Program.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <fl/Retry.hpp>

#include <array>
#include <cerrno>
#include <cstddef>
#include <span>
#include <system_error>

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;
using fl::filesystem::retryInterrupted;

void require(bool worked, int reason, const std::string& what) {
    if (!worked) throw std::system_error(reason, std::generic_category(), what);
}

struct Pipe {
    FileDescriptor from, into;
};

Pipe makePipe() {
    std::array<int, 2> ends{};
    require(::pipe2(ends.data(), O_CLOEXEC) == 0, errno, "cannot make a pipe");
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

// What the program is started with: its standard streams, and the default handling of the signals
// that this process ignores.
class Setting {
public:
    explicit Setting(int output) {
        ::posix_spawn_file_actions_init(&streams_);
        ::posix_spawn_file_actions_addopen(&streams_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_adddup2(&streams_, output, STDOUT_FILENO);
        sigset_t ignored;
        ::sigemptyset(&ignored);
        ::sigaddset(&ignored, SIGPIPE);
        ::sigaddset(&ignored, SIGXFSZ);
        ::posix_spawnattr_init(&attributes_);
        ::posix_spawnattr_setsigdefault(&attributes_, &ignored);
        ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
    }
    ~Setting() {
        ::posix_spawn_file_actions_destroy(&streams_);
        ::posix_spawnattr_destroy(&attributes_);
    }
    Setting(const Setting&) = delete;
    Setting& operator=(const Setting&) = delete;

    // Returns 0, or why the program could not be started (an errno value).
    int start(pid_t& process, char* const* arguments) const {
        return ::posix_spawnp(&process, arguments[0], &streams_, &attributes_, arguments, environ);
    }

private:
    posix_spawn_file_actions_t streams_;
    posix_spawnattr_t attributes_;
};

std::vector<char*> argumentsOf(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    return arguments;
}

std::string readToEnd(const FileDescriptor& pipe) {
    constexpr std::size_t kReadBytes = std::size_t{64} << 10;
    std::string text;
    std::vector<char> buffer(kReadBytes);
    while (true) {
        const auto count =
            retryInterrupted([&] { return ::read(pipe.get(), buffer.data(), buffer.size()); });
        require(count >= 0, errno, "cannot read the output of a program");
        if (count == 0) return text;
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

int waitFor(pid_t process) {
    int status = 0;
    const auto ended = retryInterrupted([&] { return ::waitpid(process, &status, 0); });
    require(ended == process, errno, "cannot wait for the end of a program");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

MemoryFile::MemoryFile(std::string_view bytes) : file_(::memfd_create("qzapp", 0)) {
    require(static_cast<bool>(file_), errno, "cannot create a file in memory");
    file_.writeAt(std::as_bytes(std::span(bytes)), 0);
}

std::string MemoryFile::name() const {
    return fmt::format("/dev/fd/{}", file_.get());
}

std::optional<ProgramEnd> runProgram(const std::vector<std::string>& command) {
    Pipe pipe = makePipe();
    const std::vector<char*> arguments = argumentsOf(command);
    pid_t process = 0;
    const int reason = Setting(pipe.into.get()).start(process, arguments.data());
    if (reason == ENOENT) return std::nullopt;
    require(reason == 0, reason, command[0] + " cannot be run");
    pipe.into = FileDescriptor();  // while we hold it open, reading never reaches the end
    ProgramEnd end{0, readToEnd(pipe.from)};
    end.status = waitFor(process);
    return end;
}

}  // namespace qzapp
