#pragma once

#include <foundation/Export.hpp>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace foundation::crypto::utils {

// Thrown for text that is not base64. The message names the reason and the offset, which counts
// bytes from the start of the text.
class PLATFORM_API Base64Error : public std::runtime_error {
public:
    Base64Error(const char* reason, std::size_t offset);
    std::size_t offset() const noexcept { return offset_; }

private:
    std::size_t offset_;
};

// Decodes base64 in the alphabet of RFC 4648 with "+" and "/". Skips ASCII white space, and accepts
// missing or partial padding and non-zero trailing bits. Throws Base64Error for any other
// character, for data after padding, for padding where none is due, and for a single leftover
// character, which is less than a byte. Takes time and memory linear in the length of the text.
PLATFORM_API std::vector<std::uint8_t> base64Decode(std::string_view text);

// The number of bytes that base64Decode() returns. Takes no memory, and throws the same.
PLATFORM_API std::size_t base64DecodedSize(std::string_view text);

}  // namespace foundation::crypto::utils
