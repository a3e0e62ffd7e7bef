#pragma once

#include <cstddef>
#include <new>

// FailingAllocator.cpp replaces malloc in the test program that compiles it, so that allocations in
// C libraries can fail too. Sanitizers have a malloc of their own; with them it replaces operator
// new.
namespace test_support {

// Allocations that have not been freed.
std::size_t outstandingAllocations() noexcept;

// peakBytes() is the most bytes that were allocated at one time since startPeak(), minus those that
// were allocated at startPeak().
void startPeak() noexcept;
std::size_t peakBytes() noexcept;

// Makes allocation number `number` (from 1) of the calling thread fail, counted from now, and with
// StaysExhausted all later ones too. 0 turns this off.
enum class Memory { IsThereAgain, StaysExhausted };
inline constexpr Memory kMemories[] = {Memory::IsThereAgain, Memory::StaysExhausted};
void failAllocation(std::size_t number, Memory then = Memory::IsThereAgain) noexcept;
// The same for the allocations of all threads together.
void failAllocationOfAny(std::size_t number, Memory then = Memory::IsThereAgain) noexcept;
// Whether that allocation has been requested, and so has failed.
bool allocationFailed() noexcept;

// Runs `operation` again and again with its first, its second, ... allocation failing, until it
// makes fewer. If `then` is IsThereAgain, first does the same with all later allocations failing
// too. An exception ends a run; `check` is called after each run. Returns the number of runs in
// which a single allocation failed.
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
