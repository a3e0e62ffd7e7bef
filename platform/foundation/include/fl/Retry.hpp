#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace fl::filesystem {

// Calls `call` until a signal no longer interrupts it, and returns its result; `errno` is that of
// the last call. Do not use it for fsync, because a second fsync reports success for what the first
// one lost, nor for close, because the descriptor is closed even if close was interrupted.
template <class Call>
auto retryInterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

// `error` is an errno value; the exception's text is `what`, then the system's text for it.
// `error` is an errno value; the exception's text is `what`, then the system's text for it.
[[noreturn]] inline void throwSystemError(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

}  // namespace fl::filesystem
