#include "tools/qzapp/pictures/PictureScaler.hpp"

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>
#include <fl/Retry.hpp>
#include <opc/ImageTypes.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "tools/qzapp/pictures/DecoderProcess.hpp"

namespace qzapp::pictures {
namespace {

using fl::filesystem::FileDescriptor;
using fl::filesystem::retryInterrupted;
using fl::filesystem::throwSystemError;
// For a process that does nothing, so that its processor time does not end it. Counted in waits of
// a second, and not by the clock, which goes on while everything here is stopped.
constexpr int kPatience = 60;
constexpr int kSecond = 1000;  // milliseconds

// Two ends of a connection that no started program inherits.
std::array<FileDescriptor, 2> connect() {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throwSystemError(errno, "cannot make a socket");
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

// What the starter is asked and answers. The connection of a new process comes with the answer.

struct StartRequest {
    pid_t toBeEnded;  // a process that was started before and is no longer needed, or 0
};

struct StartAnswer {
    pid_t process;  // 0 if none could be started
    int error;      // why not
};

union DescriptorMessage {
    cmsghdr header;
    std::array<char, CMSG_SPACE(sizeof(int))> room;
};

// Returns false if it could not be sent, for example because the system has no memory for the
// descriptor.
bool sendAnswer(const FileDescriptor& to, StartAnswer answer, const FileDescriptor& connection) {
    iovec part{&answer, sizeof answer};
    DescriptorMessage control{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (connection) {
        message.msg_control = &control;
        message.msg_controllen = sizeof control;
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof(int));
        const int descriptor = connection.get();
        std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
    }
    return retryInterrupted([&] { return ::sendmsg(to.get(), &message, MSG_NOSIGNAL); }) ==
           sizeof answer;
}

std::optional<std::pair<StartAnswer, FileDescriptor>> receiveAnswer(const FileDescriptor& from) {
    StartAnswer answer{};
    iovec part{&answer, sizeof answer};
    DescriptorMessage control{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = &control;
    message.msg_controllen = sizeof control;
    const auto count =
        retryInterrupted([&] { return ::recvmsg(from.get(), &message, MSG_CMSG_CLOEXEC); });
    if (count != sizeof answer) return std::nullopt;
    int descriptor = -1;
    const cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (header != nullptr && header->cmsg_type == SCM_RIGHTS)
        std::memcpy(&descriptor, CMSG_DATA(header), sizeof descriptor);
    return std::pair(answer, FileDescriptor(descriptor));
}

// The process that starts those that decode, and ends them. It looks at no image, and ends only
// what it has started itself.
class Starter {
public:
    Starter(const FileDescriptor& requests, Size box) : requests_(&requests), box_(box) {}

    [[noreturn]] void run() {
        handleSignals();
        ::prctl(PR_SET_NAME, "qzapp-pictures");
        keepOnly(*requests_);
        StartRequest request{};
        bool isHeard = true;
        while (isHeard && retryInterrupted([&] {
                              return ::read(requests_->get(), &request, sizeof request);
                          }) == sizeof request) {
            end(request.toBeEnded);
            isHeard = startOne();
        }
        while (!started_.empty())
            end(started_.back());
        ::_exit(EXIT_SUCCESS);
    }

private:
    // What was set for the main process would remove its files. The terminal sends signals to this
    // process too, which ends when the main process does.
    static void handleSignals() {
        for (const int signal : {SIGINT, SIGTERM, SIGHUP})
            ::signal(signal, SIG_IGN);
        for (const int signal : {SIGPIPE, SIGXFSZ, SIGXCPU, SIGPROF, SIGCHLD})
            ::signal(signal, SIG_DFL);
        sigset_t none;
        ::sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
    }

    void end(pid_t process) {
        const auto found = std::ranges::find(started_, process);
        if (found == started_.end()) return;
        started_.erase(found);
        ::kill(process, SIGKILL);
        retryInterrupted([&] { return ::waitpid(process, nullptr, 0); });
    }

    // Returns false if the main process cannot be answered; it then sees that this one has ended.
    bool startOne() {
        std::array<int, 2> ends{};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
            return sendAnswer(*requests_, {0, errno}, {});
        const FileDescriptor theirs(ends[0]), own(ends[1]);
        const pid_t self = ::getpid();
        const pid_t process = ::fork();
        if (process == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (::getppid() != self) ::_exit(EXIT_FAILURE);
            runDecoder(own, box_);
        }
        if (process < 0) return sendAnswer(*requests_, {0, errno}, {});
        started_.push_back(process);
        if (sendAnswer(*requests_, {process, 0}, theirs)) return true;
        const int reason = errno;
        end(process);
        return sendAnswer(*requests_, {0, reason}, {});
    }

    const FileDescriptor* requests_;
    Size box_;
    std::vector<pid_t> started_;
};

// An exchange with a process that may have been taken over. Its functions return false if that
// process has ended, or has let us wait for too long altogether.
class Exchange {
public:
    explicit Exchange(const FileDescriptor& connection) : connection_(&connection) {}

    bool send(const void* from, std::size_t size) {
        const auto* at = static_cast<const char*>(from);
        return move(size, POLLOUT, [&](std::size_t done) {
            return ::send(connection_->get(), at + done, size - done, MSG_NOSIGNAL | MSG_DONTWAIT);
        });
    }
    bool receive(void* to, std::size_t size) {
        auto* at = static_cast<char*>(to);
        return move(size, POLLIN, [&](std::size_t done) {
            return ::recv(connection_->get(), at + done, size - done, MSG_DONTWAIT);
        });
    }

private:
    template <class Call>
    bool move(std::size_t size, short event, Call call) {
        for (std::size_t done = 0; done < size;) {
            const auto count = retryInterrupted([&] { return call(done); });
            if (count > 0) {
                done += static_cast<std::size_t>(count);
            } else if (count == 0 || (errno != EAGAIN && errno != EWOULDBLOCK) || !wait(event)) {
                return false;
            }
        }
        return true;
    }
    bool wait(short event) {
        pollfd ready{connection_->get(), event, 0};
        if (::poll(&ready, 1, kSecond) == 0) ++waits_;
        return waits_ < kPatience;
    }

    const FileDescriptor* connection_;
    int waits_ = 0;
};

// More than a file of this many pixels can have.
std::uint64_t maxBytesOf(Size box) {
    return std::uint64_t{8} * box.width * box.height + (std::uint64_t{64} << 10);
}

// Whether the process that decodes can have replied so. If not, an image has taken it over.
bool isSound(const Reply& reply, Size box) {
    if (reply.isScaled == 0) return reply.bytes == 0 && reply.refusal <= Refusal::NoMemory;
    const Size original = reply.original;
    return original.width > 0 && original.height > 0 && original.width <= kMaxSide &&
           original.height <= kMaxSide && reply.size == fitted(original, box) && reply.bytes > 0 &&
           reply.bytes <= maxBytesOf(box);
}

std::optional<PictureScaler::Result> resultOf(const Reply& reply, std::string bytes) {
    if (reply.isScaled == 0) return reply.refusal;
    const opc::ImageType* const type = opc::imageTypeOf(bytes);
    if (type == nullptr || (type->format != "png" && type->format != "jpg")) return std::nullopt;
    return ScaledPicture{std::move(bytes), type->mediaType, reply.size, reply.original};
}

}  // namespace

PictureScaler::PictureScaler(Size box) : box_(box) {
    auto [own, theirs] = connect();
    starterProcess_ = ::fork();
    if (starterProcess_ < 0) throwSystemError(errno, "cannot start a process");
    if (starterProcess_ == 0) Starter(theirs, box).run();
    starter_ = std::move(own);
}

PictureScaler::~PictureScaler() {
    idle_.clear();
    starter_ = {};
    retryInterrupted([&] { return ::waitpid(starterProcess_, nullptr, 0); });
}

std::optional<PictureScaler::Decoder> PictureScaler::start(pid_t toBeEnded) {
    const std::lock_guard lock(startMutex_);
    const StartRequest request{toBeEnded};
    auto answer =
        Exchange(starter_).send(&request, sizeof request) ? receiveAnswer(starter_) : std::nullopt;
    if (!answer || answer->first.process == 0 || !answer->second) return std::nullopt;
    return Decoder{std::move(answer->second), answer->first.process};
}

std::optional<PictureScaler::Decoder> PictureScaler::take() {
    {
        const std::lock_guard lock(idleMutex_);
        if (!idle_.empty()) {
            Decoder decoder = std::move(idle_.back());
            idle_.pop_back();
            return decoder;
        }
    }
    return start(0);
}

void PictureScaler::giveBack(Decoder decoder) {
    const std::lock_guard lock(idleMutex_);
    idle_.push_back(std::move(decoder));
}

// The process may be one that does not end by itself, and no longer deserves trust.
void PictureScaler::end(Decoder decoder) {
    decoder.connection = {};
    if (auto next = start(decoder.process)) giveBack(*std::move(next));
}

PictureScaler::Result PictureScaler::scale(std::string_view image) {
    if (opc::imageTypeOf(image) == nullptr) return Refusal::NoImage;
    if (image.size() > kMaxBytes) return Refusal::TooManyBytes;
    std::optional<Decoder> taken = take();
    if (!taken) return Refusal::NotNow;
    Decoder decoder = *std::move(taken);
    const Request request{image.size()};
    Exchange exchange(decoder.connection);
    Reply reply{};
    std::string bytes;
    std::optional<Result> result;
    if (exchange.send(&request, sizeof request) && exchange.send(image.data(), image.size()) &&
        exchange.receive(&reply, sizeof reply) && isSound(reply, box_)) {
        bytes.resize(reply.bytes);
        if (exchange.receive(bytes.data(), bytes.size()))
            result = resultOf(reply, std::move(bytes));
    }
    if (!result || reply.isLast != 0)
        end(std::move(decoder));
    else
        giveBack(std::move(decoder));
    return result ? std::move(*result) : Refusal::Killed;
}

}  // namespace qzapp::pictures
