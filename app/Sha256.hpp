#pragma once

#include <nettle/sha2.h>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace qzapp {

// The SHA-256 of bytes that come piece by piece. hex() and base64() return the hash and start a new
// one.
class Sha256 {
public:
    Sha256();
    void update(std::span<const std::byte> bytes);
    // 64 hexadecimal digits in lower case.
    std::string hex();
    // The form that a Content-Security-Policy uses.
    std::string base64();

private:
    sha256_ctx state_;
};

std::string sha256Hex(std::string_view bytes);
std::string sha256Base64(std::string_view bytes);

}  // namespace qzapp
