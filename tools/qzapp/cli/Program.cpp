#include "tools/qzapp/cli/Program.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <fl/Retry.hpp>

#include <cerrno>
#include <cstddef>
#include <span>
#include <system_error>
#include <utility>

#include "tools/qzapp/cli/Pipe.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;
using fl::filesystem::retryInterrupted;

void require(bool worked, int reason, const std::string& what) {
    if (!worked) throw std::system_error(reason, std::generic_category(), what);
}

// What the program is started with: its standard streams, and the default handling of the signals
// that this process ignores.
class Setting {
public:
    Setting(int output, int errors) {
        ::posix_spawn_file_actions_init(&streams_);
        ::posix_spawn_file_actions_addopen(&streams_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_adddup2(&streams_, output, STDOUT_FILENO);
        ::posix_spawn_file_actions_adddup2(&streams_, errors, STDERR_FILENO);
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

int waitFor(pid_t process) {
    int status = 0;
    const auto ended = retryInterrupted([&] { return ::waitpid(process, &status, 0); });
    return ended == process && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// What became of a request to run a program.
struct Answer {
    std::size_t command;  // the one that was run, or the last one
    int reason;           // the errno if none was run, or 0
    int status;
};

Answer runFirst(const std::vector<std::vector<std::string>>& commands, int output, int errors) {
    Answer answer{commands.size() - 1, ENOENT, -1};
    // The program writes at the files' current positions.
    ::lseek(output, 0, SEEK_SET);
    ::lseek(errors, 0, SEEK_SET);
    const Setting setting(output, errors);
    for (std::size_t i = 0; i < commands.size(); ++i) {
        const std::vector<char*> arguments = argumentsOf(commands[i]);
        pid_t process = 0;
        answer.reason = setting.start(process, arguments.data());
        if (answer.reason == ENOENT) continue;
        answer.command = i;
        if (answer.reason == 0) answer.status = waitFor(process);
        break;
    }
    return answer;
}

}  // namespace

MemoryFile::MemoryFile() : file_(::memfd_create("qzapp", 0)) {
    require(static_cast<bool>(file_), errno, "cannot create a file in memory");
}

void MemoryFile::fill(std::string_view bytes) {
    file_.truncate(0);
    file_.writeAt(std::as_bytes(std::span(bytes)), 0);
}

std::string MemoryFile::content() const {
    std::string bytes(file_.stamp().size, '\0');
    bytes.resize(file_.readAt(std::as_writable_bytes(std::span(bytes)), 0));
    return bytes;
}

std::string MemoryFile::name() const {
    return fmt::format("/dev/fd/{}", file_.get());
}

std::string ProgramEnd::failure() const {
    const std::size_t end = errors.find_last_not_of(" \n") + 1;
    const std::size_t start = errors.rfind('\n', end - 1) + 1;
    if (end > 0) return name + ": " + errors.substr(start, end - start);
    return status < 0 ? name + " was ended by a signal"
                      : fmt::format("{} ended with status {}", name, status);
}

Program::Program(std::vector<std::vector<std::string>> commands) : commands_(std::move(commands)) {
    Pipe requests = makePipe();
    Pipe answers = makePipe();
    process_ = ::fork();
    if (process_ < 0) return;  // run() fails; it may never be called
    if (process_ == 0) {
        requests.into = {};  // while it is open here, reading never reaches the end
        serve(requests.from, answers.into);
    }
    requests_ = std::move(requests.into);
    answers_ = std::move(answers.from);
}

Program::~Program() {
    requests_ = {};
    if (process_ < 0) return;
    int ignored = 0;
    retryInterrupted([&] { return ::waitpid(process_, &ignored, 0); });
}

std::optional<ProgramEnd> Program::run() {
    require(process_ > 0, EAGAIN, "cannot start a process");
    output_.fill("");
    errors_.fill("");
    Answer answer{};
    const bool isAnswered =
        retryInterrupted([&] { return ::write(requests_.get(), "", 1); }) == 1 &&
        retryInterrupted([&] { return ::read(answers_.get(), &answer, sizeof answer); }) ==
            sizeof answer;
    require(isAnswered, EPIPE, "the process that starts programs has ended");
    const std::string& name = commands_.at(answer.command)[0];
    if (answer.reason == ENOENT) return std::nullopt;
    require(answer.reason == 0, answer.reason, name + " cannot be run");
    return ProgramEnd{name, answer.status, output_.content(), errors_.content()};
}

// Runs in the process that waits.
void Program::serve(const FileDescriptor& requests, const FileDescriptor& answers) const {
    ::signal(SIGCHLD, SIG_DFL);  // if it were ignored, waitpid() would give no status
    char request = 0;
    while (retryInterrupted([&] { return ::read(requests.get(), &request, 1); }) == 1) {
        const Answer answer = runFirst(commands_, output_.get(), errors_.get());
        if (::write(answers.get(), &answer, sizeof answer) != sizeof answer) break;
    }
    ::_exit(0);
}

}  // namespace qzapp
