#include "tools/qzapp/cli/Pipe.hpp"

#include <fcntl.h>
#include <unistd.h>
#include <fl/Retry.hpp>

#include <array>
#include <cerrno>

namespace qzapp {

Pipe makePipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        fl::filesystem::throwSystemError(errno, "cannot make a pipe");
    return {fl::filesystem::FileDescriptor(ends[0]), fl::filesystem::FileDescriptor(ends[1])};
}

}  // namespace qzapp
