#include "tools/qzapp/pictures/DecoderProcess.hpp"

#include <fcntl.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>
#include <fl/Retry.hpp>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/pictures/Decoders.hpp"

namespace qzapp::pictures {
namespace {

using fl::filesystem::FileDescriptor;
using fl::filesystem::retryInterrupted;
using std::chrono::seconds;

// A decoded image has at most 128 MiB, and a progressive JPEG takes 192 MiB while it is decoded.
constexpr std::uint64_t kMemory = std::uint64_t{512} << 20;
// Processor time for one picture. The largest that are taken need about a second.
constexpr seconds kTimeForOne{5};
// After so much time or so many pictures another process takes over, so that what a hostile image
// has done to this one ends with it.
constexpr seconds kTimeForAll{60};
constexpr int kMostPictures = 100;

// The system calls that remain. All others fail.
constexpr std::array kCalls = {
    SCMP_SYS(read),        SCMP_SYS(write),         SCMP_SYS(exit_group),
    SCMP_SYS(exit),        SCMP_SYS(munmap),        SCMP_SYS(mremap),
    SCMP_SYS(brk),         SCMP_SYS(madvise),       SCMP_SYS(futex),
    SCMP_SYS(getrandom),   SCMP_SYS(clock_gettime), SCMP_SYS(setitimer),
    SCMP_SYS(sched_yield), SCMP_SYS(rt_sigreturn),  SCMP_SYS(restart_syscall),
};

// Without the kernel's filter the process is confined by its cage and limits only.
void allowFewCalls() {
    const std::unique_ptr<void, void (*)(scmp_filter_ctx)> filter(
        seccomp_init(SCMP_ACT_ERRNO(EPERM)), seccomp_release);
    if (!filter) return;
    for (const int call : kCalls) {
        if (seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 0) != 0) return;
    }
    // Memory, but none that can be run.
    for (const int call : {SCMP_SYS(mmap), SCMP_SYS(mprotect)}) {
        if (seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 1,
                             SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0)) != 0) {
            return;
        }
    }
    seccomp_load(filter.get());
}

bool receive(const FileDescriptor& connection, void* to, std::size_t size) {
    auto* at = static_cast<char*>(to);
    while (size > 0) {
        const auto count = retryInterrupted([&] { return ::read(connection.get(), at, size); });
        if (count <= 0) return false;
        at += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

bool send(const FileDescriptor& connection, const void* from, std::size_t size) {
    const auto* at = static_cast<const char*>(from);
    while (size > 0) {
        const auto count = retryInterrupted([&] { return ::write(connection.get(), at, size); });
        if (count <= 0) return false;
        at += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

// SIGPROF ends the process if this much processor time passes before the alarm is set again.
void setAlarm(seconds time) {
    itimerval timer{};
    timer.it_value.tv_sec = time.count();
    ::setitimer(ITIMER_PROF, &timer, nullptr);
}

Reply answerTo(const std::string& image, Size box, std::string& bytes) {
    Reply reply{};
    try {
        ScaledPicture picture = scaleHere(image, box);
        reply.isScaled = 1;
        reply.size = picture.size;
        reply.original = picture.original;
        bytes = std::move(picture.bytes);
        reply.bytes = bytes.size();
    } catch (const Refused& e) {
        reply.refusal = e.refusal;
    } catch (const std::bad_alloc&) {
        reply.refusal = Refusal::NoMemory;
    }
    return reply;
}

bool isTired(int pictures) {
    const auto used = std::clock() / CLOCKS_PER_SEC;
    return pictures >= kMostPictures || used >= (kTimeForAll - kTimeForOne).count();
}

void answerAll(const FileDescriptor& connection, Size box) {
    bool isLast = false;
    for (int pictures = 1; !isLast; ++pictures) {
        Request request{};
        if (!receive(connection, &request, sizeof request)) return;
        std::string image(request.bytes, '\0'), picture;
        if (!receive(connection, image.data(), image.size())) return;
        setAlarm(kTimeForOne);
        Reply reply = answerTo(image, box, picture);
        setAlarm(seconds{0});
        isLast = isTired(pictures);
        reply.isLast = isLast ? 1 : 0;
        if (!send(connection, &reply, sizeof reply) ||
            !send(connection, picture.data(), picture.size())) {
            return;
        }
    }
}

}  // namespace

void keepOnly(const FileDescriptor& descriptor) {
    const FileDescriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (!nothing || ::dup2(nothing.get(), stream) < 0) ::close(stream);
    }
    const auto kept = static_cast<unsigned>(descriptor.get());
    if (kept > STDERR_FILENO + 1) ::close_range(STDERR_FILENO + 1, kept - 1, 0);
    ::close_range(kept + 1, UINT_MAX, 0);
}

void confineToMemory() {
    limitProcessorTime(kTimeForAll);
    limitMemory(kMemory);
    Cage().enter();
    allowFewCalls();
}

void runDecoder(const FileDescriptor& connection, Size box) {
    try {
        keepOnly(connection);
        confineToMemory();
        answerAll(connection, box);
    } catch (const std::exception&) {
        // The other side sees that this process has ended.
    }
    ::_exit(EXIT_SUCCESS);
}

}  // namespace qzapp::pictures
