#pragma once

#include <foundation/Export.hpp>

#include <cstddef>
#include <span>

namespace opc {

// What a file is according to its first bytes. Messages use it to say what somebody gave in the
// place of a package or a text; nothing is decided by it, so a wrong guess does no harm.
struct PLATFORM_API FileKind {
    enum class Family { Unknown, Empty, Zip, Text, Utf16Text, Binary };
    Family family;
    const char* name;  // for messages: "a PNG image", "text"; lives as long as the program

    // The number of bytes from the start of a file that of() looks at.
    static constexpr std::size_t kStart = 512;
    // `start` is the beginning of the file: kStart bytes, or all of a shorter file. Never throws
    // for what the bytes are: those of no known kind are Family::Unknown.
    static FileKind of(std::span<const std::byte> start);
};

}  // namespace opc
