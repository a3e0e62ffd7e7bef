#include <foundation/ProcessMark.hpp>

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace foundation {

namespace {

constinit std::atomic<unsigned> forks = 0;

void countFork() noexcept {
    ++forks;
}

}  // namespace

ProcessMark::ProcessMark() noexcept : number_(::getpid()) {
    // If this fails, the number alone has to do.
    static const int registered = ::pthread_atfork(nullptr, nullptr, countFork);
    static_cast<void>(registered);
    forks_ = forks;
}

bool ProcessMark::isOfThisProcess() const noexcept {
    return number_ == ::getpid() && forks_ == forks;
}

}  // namespace foundation
