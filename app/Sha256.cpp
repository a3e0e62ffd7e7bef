#include "app/Sha256.hpp"

#include <fmt/format.h>
#include <nettle/base64.h>

#include <array>
#include <cstdint>

namespace qzapp {
namespace {

using Digest = std::array<std::uint8_t, SHA256_DIGEST_SIZE>;

Digest take(sha256_ctx& state) {
    Digest digest{};
    sha256_digest(&state, digest.size(), digest.data());
    return digest;
}

Sha256 sumOf(std::string_view bytes) {
    Sha256 sum;
    sum.update(std::as_bytes(std::span(bytes)));
    return sum;
}

}  // namespace

Sha256::Sha256() {
    sha256_init(&state_);
}

void Sha256::update(std::span<const std::byte> bytes) {
    sha256_update(&state_, bytes.size(), reinterpret_cast<const std::uint8_t*>(bytes.data()));
}

std::string Sha256::hex() {
    return fmt::format("{:02x}", fmt::join(take(state_), ""));
}

std::string Sha256::base64() {
    const Digest digest = take(state_);
    std::string text(BASE64_ENCODE_RAW_LENGTH(digest.size()), '\0');
    base64_encode_raw(text.data(), digest.size(), digest.data());
    return text;
}

std::string sha256Hex(std::string_view bytes) {
    return sumOf(bytes).hex();
}

std::string sha256Base64(std::string_view bytes) {
    return sumOf(bytes).base64();
}

}  // namespace qzapp
