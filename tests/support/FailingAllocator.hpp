#pragma once

#include <cstddef>
#include <new>

// Replaces malloc in a test program that compiles FailingAllocator.cpp, so that libraries written in C
// fail, too. Sanitizers bring a malloc of their own; with them it is operator new.
namespace test_support {

// Allocations that have not been freed.
std::size_t outstandingAllocations() noexcept;

// The most bytes that were allocated at one time since startPeak(), beyond those allocated then.
void startPeak() noexcept;
std::size_t peakBytes() noexcept;

// From now on the calling thread's allocation number `number` (from 1) fails, and perhaps all that
// follow; 0 turns it off.
enum class Memory { IsThereAgain, StaysExhausted };
inline constexpr Memory kMemories[] = {Memory::IsThereAgain, Memory::StaysExhausted};
void failAllocation(std::size_t number, Memory then = Memory::IsThereAgain) noexcept;
// Whether that allocation has been asked for.
bool allocationFailed() noexcept;

// Runs `operation` again and again, with its first, its second, ... allocation failing, until it no
// longer asks for that many; then again with all that follow failing, too. An exception ends a run;
// `check` is called after each. Returns the number of runs in which one allocation failed.
template <class Operation, class Check>
std::size_t forEachFailingAllocation(Operation operation, Check check,
                                     Memory then = Memory::IsThereAgain) {
    if (then == Memory::IsThereAgain)
        forEachFailingAllocation(operation, check, Memory::StaysExhausted);
    for (std::size_t number = 1;; ++number) {
        failAllocation(number, then);
        try {
            operation();
        } catch (...) {
        }
        const bool failed = allocationFailed();
        failAllocation(0);
        check();
        if (!failed) return number - 1;
    }
}

}  // namespace test_support
