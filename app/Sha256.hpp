#pragma once

#include <nettle/sha2.h>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace qzapp {

// A SHA-256 sum over bytes that come piece by piece. Taking the sum starts a new one.
class Sha256 {
public:
    Sha256();
    void update(std::span<const std::byte> bytes);
    // In hexadecimal digits, lower case.
    std::string hex();
    // As in a Content-Security-Policy.
    std::string base64();

private:
    sha256_ctx state_;
};

std::string sha256Hex(std::string_view bytes);
std::string sha256Base64(std::string_view bytes);

}  // namespace qzapp
