// Base64: decoding in blocks gives what decoding character by character gives, and whatever an
// encoder makes can be decoded.

#include <foundation/Base64.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/Fuzzing.hpp"

namespace {

using foundation::crypto::utils::base64Decode;
using foundation::crypto::utils::base64DecodedSize;
using foundation::crypto::utils::Base64Error;
using fuzz::require;

struct Answer {
    std::vector<std::uint8_t> bytes;
    std::optional<std::size_t> refusedAt;
};

Answer decode(std::string_view text) {
    try {
        return {base64Decode(text), {}};
    } catch (const Base64Error& error) {
        return {{}, error.offset()};
    }
}

// Requires that the size is counted, or the text refused, as `decoded` says.
void requireCounted(std::string_view text, const Answer& decoded) {
    try {
        const std::size_t size = base64DecodedSize(text);
        require(!decoded.refusedAt && size == decoded.bytes.size(), "the size of what is decoded");
    } catch (const Base64Error& error) {
        require(decoded.refusedAt == error.offset(), "no size of what is refused");
    }
}

// Puts something between all characters, so that no two are decoded together.
std::string spaced(std::string_view text) {
    std::string apart;
    for (const char c : text)
        apart.append({c, ' '});
    return apart;
}

std::string encode(std::string_view bytes) {
    constexpr std::string_view kAlphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        unsigned group = 0;
        for (std::size_t j = i; j < i + 3; ++j)
            group = group << 8 | (j < bytes.size() ? static_cast<unsigned char>(bytes[j]) : 0U);
        for (int shift = 18; shift >= 0; shift -= 6)
            text += kAlphabet[group >> shift & 63];
    }
    const std::size_t padding = (3 - bytes.size() % 3) % 3;
    return text.replace(text.size() - padding, padding, padding, '=');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    // Lets an odd character stand anywhere in a block that is decoded at once.
    const std::string front(input.number(2) % 8200, 'A');
    const std::string text = front + std::string(input.rest());
    const Answer together = decode(text);
    const Answer apart = decode(spaced(text));
    require(together.bytes == apart.bytes, "the same bytes, together and apart");
    require(together.refusedAt.has_value() == apart.refusedAt.has_value() &&
                2 * together.refusedAt.value_or(0) == apart.refusedAt.value_or(0),
            "refused at the same character");
    requireCounted(text, together);
    const auto again = base64Decode(encode(text));
    require(std::string(again.begin(), again.end()) == text, "what was encoded is decoded");
    return 0;
}
