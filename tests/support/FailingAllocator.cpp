#include "tests/support/FailingAllocator.hpp"

#include <atomic>
#include <cstdlib>

namespace test_support {

namespace {

std::atomic<std::size_t> outstanding{0};
thread_local std::size_t countdown = 0;
thread_local bool failed = false;

void* allocate(std::size_t size) {
    if (countdown != 0 && --countdown == 0) {
        failed = true;
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) throw std::bad_alloc();
    outstanding.fetch_add(1, std::memory_order_relaxed);
    return memory;
}

void release(void* memory) noexcept {
    if (memory == nullptr) return;
    outstanding.fetch_sub(1, std::memory_order_relaxed);
    std::free(memory);
}

}  // namespace

std::size_t outstandingAllocations() noexcept {
    return outstanding.load(std::memory_order_relaxed);
}

void failAllocation(std::size_t number) noexcept {
    countdown = number;
    failed = false;
}

bool allocationFailed() noexcept {
    return failed;
}

}  // namespace test_support

void* operator new(std::size_t size) {
    return test_support::allocate(size);
}
void* operator new[](std::size_t size) {
    return test_support::allocate(size);
}
// The sanitizers' own would not come here.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return test_support::allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    test_support::release(memory);
}
void operator delete(void* memory) noexcept {
    test_support::release(memory);
}
void operator delete[](void* memory) noexcept {
    test_support::release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    test_support::release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    test_support::release(memory);
}
