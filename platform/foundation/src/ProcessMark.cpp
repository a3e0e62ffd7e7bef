#include <foundation/ProcessMark.hpp>

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <new>

namespace foundation {

namespace {

using Counter = std::atomic<unsigned>;
static_assert(Counter::is_always_lock_free);

constinit Counter forks = 0;

void countFork() noexcept {
    ++forks;
}

// A counter that the kernel sets to 0 in the copy that any new process gets, also one that was made
// without fork() and its handlers. Null if the kernel has no such memory.
Counter* makeWipedCounter() noexcept {
    void* const page = ::mmap(nullptr, sizeof(Counter), PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) return nullptr;
    if (::madvise(page, sizeof(Counter), MADV_WIPEONFORK) == 0) return new (page) Counter(0);
    ::munmap(page, sizeof(Counter));
    return nullptr;
}

// How many processes lie between the first one of the program that asked and this one.
unsigned generation() noexcept {
    static Counter* const own = makeWipedCounter();
    static constinit Counter last = 0;  // of this process and those before it
    if (own == nullptr) return 0;
    unsigned number = *own;
    if (number != 0) return number;
    // Counted first, so that a child that is made in between does not get the same number.
    const unsigned next = ++last;
    return own->compare_exchange_strong(number, next) ? next : number;
}

}  // namespace

ProcessMark::ProcessMark() noexcept : number_(::getpid()) {
    // If this fails, the others have to do.
    static const int registered = ::pthread_atfork(nullptr, nullptr, countFork);
    static_cast<void>(registered);
    forks_ = forks;
    generation_ = generation();
}

bool ProcessMark::isOfThisProcess() const noexcept {
    return number_ == ::getpid() && forks_ == forks && generation_ == generation();
}

}  // namespace foundation
