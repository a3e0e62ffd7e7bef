#include "tools/qzapp/cli/Worker.hpp"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <fl/FileDescriptor.hpp>
#include <fl/Retry.hpp>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <new>
#include <stdexcept>
#include <string_view>

#include "tools/qzapp/cli/Pipe.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;
using fl::filesystem::retryInterrupted;
using fl::filesystem::throwSystemError;

// The first byte that the worker sends; text follows it.
constexpr char kResult = 'r', kFailure = 'f', kNoMemory = 'm';

std::string outcomeOf(Cage& cage, const std::function<std::string()>& work) {
    try {
        cage.enter();
        return kResult + work();
    } catch (const std::bad_alloc&) {
        return {kNoMemory};
    } catch (const std::exception& e) {
        return kFailure + std::string(e.what());
    }
}

void tell(const FileDescriptor& pipe, std::string_view text) {
    while (!text.empty()) {
        const auto count =
            retryInterrupted([&] { return ::write(pipe.get(), text.data(), text.size()); });
        if (count <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::string readToEnd(const FileDescriptor& pipe) {
    std::string text;
    std::array<char, 4096> buffer;
    while (true) {
        const auto count =
            retryInterrupted([&] { return ::read(pipe.get(), buffer.data(), buffer.size()); });
        if (count < 0) throwSystemError(errno, "cannot read from the process that reads the apps");
        if (count == 0) return text;
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace

std::string inCage(Cage& cage, const std::function<std::string()>& work) {
    Pipe pipe = makePipe();
    const pid_t self = ::getpid();
    const pid_t worker = ::fork();
    if (worker < 0) throwSystemError(errno, "cannot start a process");
    if (worker == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != self) ::_exit(EXIT_FAILURE);  // it has ended already
        tell(pipe.into, outcomeOf(cage, work));
        std::exit(EXIT_SUCCESS);
    }
    pipe.into = {};  // while it is open here, reading never reaches the end
    const std::string outcome = readToEnd(pipe.from);
    int status = 0;
    retryInterrupted([&] { return ::waitpid(worker, &status, 0); });
    if (outcome.starts_with(kResult)) return outcome.substr(1);
    if (outcome.starts_with(kNoMemory)) throw std::bad_alloc();
    if (outcome.starts_with(kFailure)) throw std::runtime_error(outcome.substr(1));
    throw std::runtime_error("the process that reads the apps was ended; try again");
}

}  // namespace qzapp
