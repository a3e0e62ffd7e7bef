#pragma once

#include <foundation/Export.hpp>

#include <cstddef>
#include <span>

namespace opc {

// What a file is, as its first bytes show it: for saying what somebody has given in the place of a
// package or of a text.
struct PLATFORM_API FileKind {
    enum class Family { Unknown, Empty, Zip, Text, Utf16Text, Binary };
    Family family;
    const char* name;  // "a PNG image", "text"

    // How many bytes are enough.
    static constexpr std::size_t kStart = 512;
    // `start` is the beginning of the file, or all of it.
    static FileKind of(std::span<const std::byte> start);
};

}  // namespace opc
