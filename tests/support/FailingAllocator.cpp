#include "tests/support/FailingAllocator.hpp"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace test_support {

namespace {

std::atomic<std::size_t> outstanding{0};
std::atomic<std::size_t> bytes{0};  // in them
std::atomic<std::size_t> peak{0};
std::size_t peakStart = 0;
thread_local std::size_t countdown = 0;
thread_local Memory afterwards = Memory::IsThereAgain;
thread_local bool failed = false;
// Those of all threads together.
std::atomic<std::size_t> countdownOfAll = 0;
std::atomic<Memory> afterwardsOfAll = Memory::IsThereAgain;
std::atomic<bool> failedOfAny = false;

bool failsForAll() noexcept {
    std::size_t left = countdownOfAll;
    const bool stays = afterwardsOfAll == Memory::StaysExhausted;
    while (left != 0 &&
           !countdownOfAll.compare_exchange_weak(left, left == 1 && stays ? 1 : left - 1)) {
    }
    if (left == 1) failedOfAny = true;
    return left == 1;
}

bool failsForThis() noexcept {
    if (countdown == 0 || --countdown != 0) return false;
    if (afterwards == Memory::StaysExhausted) countdown = 1;
    failed = true;
    return true;
}

// Whether the allocation that is requested now must fail.
bool fails() noexcept {
    if (!failsForThis() && !failsForAll()) return false;
    errno = ENOMEM;
    return true;
}

void* counted(void* memory) noexcept {
    if (memory == nullptr) return nullptr;
    outstanding.fetch_add(1, std::memory_order_relaxed);
    const std::size_t size = malloc_usable_size(memory);
    const std::size_t now = bytes.fetch_add(size, std::memory_order_relaxed) + size;
    // Exact only if one thread allocates at a time, as in the tests that use it.
    if (now > peak.load(std::memory_order_relaxed)) peak.store(now, std::memory_order_relaxed);
    return memory;
}

void uncount(void* memory) noexcept {
    if (memory == nullptr) return;
    outstanding.fetch_sub(1, std::memory_order_relaxed);
    bytes.fetch_sub(malloc_usable_size(memory), std::memory_order_relaxed);
}

}  // namespace

std::size_t outstandingAllocations() noexcept {
    return outstanding.load(std::memory_order_relaxed);
}

void startPeak() noexcept {
    peakStart = bytes;
    peak = peakStart;
}

std::size_t peakBytes() noexcept {
    return peak - peakStart;
}

void failAllocation(std::size_t number, Memory then) noexcept {
    countdown = number;
    afterwards = then;
    failed = false;
}

void failAllocationOfAny(std::size_t number, Memory then) noexcept {
    afterwardsOfAll = then;
    failedOfAny = false;
    countdownOfAll = number;
}

bool allocationFailed() noexcept {
    return failed || failedOfAny;
}

}  // namespace test_support

using test_support::counted;
using test_support::fails;
using test_support::uncount;

#if defined(QZ_SANITIZED)

// operator new[] is not replaced, so arrays are neither counted nor made to fail under the
// sanitizers.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return fails() ? nullptr : counted(std::malloc(size));
}
void* operator new(std::size_t size) {
    void* const memory = ::operator new(size, std::nothrow);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept {
    uncount(memory);
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    ::operator delete(memory);
}

#else

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void __libc_free(void* memory);

#define EXPORTED __attribute__((visibility("default")))  // to the libraries that are to call these

EXPORTED void* malloc(std::size_t size) {
    return fails() ? nullptr : counted(__libc_malloc(size));
}
EXPORTED void* calloc(std::size_t count, std::size_t size) {
    return fails() ? nullptr : counted(__libc_calloc(count, size));
}
EXPORTED void* realloc(void* memory, std::size_t size) {
    if (fails()) return nullptr;
    uncount(memory);
    void* const moved = __libc_realloc(memory, size);
    counted(moved != nullptr ? moved : memory);
    return moved;
}
EXPORTED void free(void* memory) {
    uncount(memory);
    __libc_free(memory);
}

}  // extern "C"

#endif
