#pragma once

#include <fl/FileDescriptor.hpp>

namespace qzapp {

struct Pipe {
    fl::filesystem::FileDescriptor from, into;
};

// Throws std::system_error. Started programs do not inherit it.
Pipe makePipe();

}  // namespace qzapp
