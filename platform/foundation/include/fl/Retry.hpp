#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace fl::filesystem {

// Repeats a call of the system that a signal interrupted. Not for fsync (a second one reports success
// for what the first one lost) nor for close (the descriptor is gone either way).
template <class Call>
auto retryInterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

[[noreturn]] inline void throwSystemError(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

}  // namespace fl::filesystem
