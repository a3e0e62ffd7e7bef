#pragma once

#include <fl/FileDescriptor.hpp>

#include <cstdint>

#include "tools/qzapp/pictures/Picture.hpp"

namespace qzapp::pictures {

// What goes over the connection to a process that decodes: a request, then the bytes of an image; a
// reply, then the bytes of the scaled picture, if there is one.

struct Request {
    std::uint64_t bytes;
};

struct Reply {
    std::uint8_t isScaled;
    Refusal refusal;      // if it is not scaled
    std::uint8_t isLast;  // the process takes no more requests
    Size size, original;
    std::uint64_t bytes;
};

// Closes all descriptors of this process but this one, and leads the standard streams to /dev/null.
void keepOnly(const fl::filesystem::FileDescriptor& descriptor);

// Confines this process for good: it can open no file, start nothing, reach no other process and no
// network, and call the system for little more than memory, of which it gets a limited amount.
void confineToMemory();

// Keeps only the connection, confines this process, and answers requests until the other end is
// closed or there have been many. An image that takes longer than some seconds of processor time
// ends the process.
[[noreturn]] void runDecoder(const fl::filesystem::FileDescriptor& connection, Size box);

}  // namespace qzapp::pictures
