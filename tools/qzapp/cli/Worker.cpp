#include "tools/qzapp/cli/Worker.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <fl/FileDescriptor.hpp>
#include <fl/Retry.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>
#include <utility>

#include "tools/qzapp/cli/Pipe.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;
using fl::filesystem::retryInterrupted;
using fl::filesystem::throwSystemError;

// A message of the worker is a byte for its kind, the size of the text and the text.
constexpr char kPiece = 'p', kDoneWorking = 'd', kFailure = 'f', kNoMemory = 'm';

struct Head {
    char kind = 0;
    std::uint64_t size = 0;
};

// What is read at a time, so that no memory is taken for a size that no bytes follow.
constexpr std::size_t kReadBytes = std::size_t{64} << 10;
// What the worker can send while this process is busy with something else.
constexpr int kPipeBytes = 1 << 20;

// Returns false if nobody reads any more.
bool writeAll(const FileDescriptor& pipe, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto count =
            retryInterrupted([&] { return ::write(pipe.get(), bytes.data(), bytes.size()); });
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

void tell(const FileDescriptor& pipe, char kind, std::string_view text = "") {
    const Head head{kind, text.size()};
    std::array<char, sizeof head> bytes{};
    std::memcpy(bytes.data(), &head, sizeof head);
    // The process that should read it has ended, and this one should have, too.
    if (!writeAll(pipe, {bytes.data(), bytes.size()}) || !writeAll(pipe, text))
        ::_exit(EXIT_FAILURE);
}

void work(Cage& cage, const std::function<void(const CagedWorker::Send&)>& work,
          const FileDescriptor& pipe) {
    try {
        cage.enter();
        work([&](std::string_view piece) { tell(pipe, kPiece, piece); });
        tell(pipe, kDoneWorking);
    } catch (const std::bad_alloc&) {
        tell(pipe, kNoMemory);
    } catch (const std::exception& e) {
        tell(pipe, kFailure, e.what());
    }
}

// Reads so many bytes, or fewer if the worker has ended before.
std::string readBytes(const FileDescriptor& pipe, std::uint64_t size) {
    std::string bytes;
    while (bytes.size() < size) {
        const std::size_t before = bytes.size();
        bytes.resize(before + std::min<std::uint64_t>(kReadBytes, size - before));
        const auto count = retryInterrupted(
            [&] { return ::read(pipe.get(), bytes.data() + before, bytes.size() - before); });
        if (count < 0) throwSystemError(errno, "cannot read from the process that reads the apps");
        bytes.resize(before + static_cast<std::size_t>(count));
        if (count == 0) break;
    }
    return bytes;
}

[[noreturn]] void throwEnded() {
    throw std::runtime_error("the process that reads the apps was ended; try again");
}

}  // namespace

CagedWorker::CagedWorker(Cage& cage, const std::function<void(const Send&)>& toDo) {
    Pipe pipe = makePipe();
    // If the system refuses, the worker only waits more often.
    static_cast<void>(::fcntl(pipe.into.get(), F_SETPIPE_SZ, kPipeBytes));
    const pid_t self = ::getpid();
    process_ = ::fork();
    if (process_ < 0) throwSystemError(errno, "cannot start a process");
    if (process_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != self) ::_exit(EXIT_FAILURE);  // it has ended already
        pipe.from = {};
        work(cage, toDo, pipe.into);
        std::exit(EXIT_SUCCESS);
    }
    from_ =
        std::move(pipe.from);  // the other end is closed: while it is open here, reading never ends
}

CagedWorker::~CagedWorker() {
    if (process_ > 0) ::kill(process_, SIGKILL);
    end();
}

void CagedWorker::end() {
    int status = 0;
    if (process_ > 0) retryInterrupted([&] { return ::waitpid(process_, &status, 0); });
    process_ = -1;
}

std::optional<std::string> CagedWorker::next() {
    if (process_ < 0) return std::nullopt;
    const std::string bytes = readBytes(from_, sizeof(Head));
    Head head;
    if (bytes.size() == sizeof head) std::memcpy(&head, bytes.data(), sizeof head);
    std::string text = readBytes(from_, head.size);
    if (head.kind == kPiece && text.size() == head.size) return text;
    end();
    if (head.kind == kNoMemory) throw std::bad_alloc();
    if (head.kind == kFailure) throw std::runtime_error(text);
    if (head.kind != kDoneWorking) throwEnded();
    return std::nullopt;
}

std::string inCage(Cage& cage, const std::function<std::string()>& work) {
    CagedWorker worker(cage, [&](const CagedWorker::Send& send) { send(work()); });
    std::string result = worker.next().value_or("");
    while (worker.next()) {
    }
    return result;
}

}  // namespace qzapp
