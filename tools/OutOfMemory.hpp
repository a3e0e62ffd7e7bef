#pragma once

#include <exception>
#include <new>

// For std::terminate handlers: whether the exception that is being handled is a std::bad_alloc.
// Destructors and other functions that must not fail take memory all the same in some libraries.
inline bool isOutOfMemory() noexcept {
    try {
        if (const auto failure = std::current_exception()) std::rethrow_exception(failure);
    } catch (const std::bad_alloc&) {
        return true;
    } catch (...) {
        // a fault of the program
    }
    return false;
}
