// The functions of FailingAllocator.hpp over malloc itself, so that libraries written in C fail too.
// Not for sanitizers, which have a malloc of their own.
#include "tests/support/FailingAllocator.hpp"

#include <malloc.h>

#include <atomic>
#include <cerrno>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void __libc_free(void* memory);
}

namespace test_support {

namespace {

std::atomic<std::size_t> outstanding{0};
std::atomic<std::size_t> bytes{0};  // in them
std::atomic<std::size_t> peak{0};
std::size_t peakStart = 0;
thread_local std::size_t countdown = 0;
thread_local bool failed = false;

template <class Allocate>
void* allocate(Allocate allocateReally) {
    if (countdown != 0 && --countdown == 0) {
        failed = true;
        errno = ENOMEM;
        return nullptr;
    }
    return allocateReally();
}

void addBytes(void* memory) {
    if (memory == nullptr) return;
    const std::size_t size = malloc_usable_size(memory);
    const std::size_t now = bytes.fetch_add(size, std::memory_order_relaxed) + size;
    // Exact for one thread at a time, which is how it is used.
    if (now > peak.load(std::memory_order_relaxed)) peak.store(now, std::memory_order_relaxed);
}

void subtractBytes(void* memory) {
    if (memory != nullptr) {
        bytes.fetch_sub(malloc_usable_size(memory), std::memory_order_relaxed);
    }
}

void* counted(void* memory) {
    if (memory != nullptr) outstanding.fetch_add(1, std::memory_order_relaxed);
    addBytes(memory);
    return memory;
}

void* reallocated(void* memory, std::size_t size) {
    subtractBytes(memory);
    void* const moved = __libc_realloc(memory, size);
    addBytes(moved != nullptr ? moved : memory);
    return moved;
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

void failAllocation(std::size_t number) noexcept {
    countdown = number;
    failed = false;
}

bool allocationFailed() noexcept {
    return failed;
}

}  // namespace test_support

using test_support::allocate;
using test_support::counted;
using test_support::reallocated;

#define EXPORTED __attribute__((visibility("default")))  // to the libraries that are to call these

extern "C" EXPORTED void* malloc(std::size_t size) {
    return allocate([&] { return counted(__libc_malloc(size)); });
}
extern "C" EXPORTED void* calloc(std::size_t count, std::size_t size) {
    return allocate([&] { return counted(__libc_calloc(count, size)); });
}
extern "C" EXPORTED void* realloc(void* memory, std::size_t size) {
    return allocate([&] {
        if (memory == nullptr) return counted(__libc_malloc(size));
        return reallocated(memory, size);
    });
}
extern "C" EXPORTED void free(void* memory) {
    if (memory != nullptr) test_support::outstanding.fetch_sub(1, std::memory_order_relaxed);
    test_support::subtractBytes(memory);
    __libc_free(memory);
}
