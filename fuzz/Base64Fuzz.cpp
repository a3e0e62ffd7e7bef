// Base64 against a decoder that takes one character after the other, and against an encoder.

#include <foundation/Base64.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/Fuzzing.hpp"

namespace {

using foundation::crypto::utils::base64Decode;
using foundation::crypto::utils::Base64Error;
using fuzz::require;

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

struct Answer {
    std::vector<std::uint8_t> bytes;
    std::optional<std::size_t> refusedAt;
    friend bool operator==(const Answer&, const Answer&) = default;
};

Answer decode(std::string_view text) {
    try {
        return {base64Decode(text), {}};
    } catch (const Base64Error& error) {
        return {{}, error.offset()};
    }
}

class Reference {
public:
    static Answer decode(std::string_view text) {
        Reference reference;
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (const auto refused = reference.take(text[i], i)) return {{}, refused};
        }
        if (reference.characters_ % 4 == 1) return {{}, reference.last_};
        return {reference.bytes_, {}};
    }

private:
    // Where the text is refused on account of `character`; nullopt while it is not.
    std::optional<std::size_t> take(char character, std::size_t at) {
        if (std::string_view(" \t\n\v\f\r").find(character) != std::string_view::npos) return {};
        if (character == '=') {
            if (characters_ % 4 == 1) return last_;
            ++padding_;
            return characters_ % 4 + padding_ > 4 || characters_ % 4 == 0 ? std::optional(at)
                                                                          : std::nullopt;
        }
        const auto value = kAlphabet.find(character);
        if (value == kAlphabet.npos || padding_ != 0) return at;
        bits_ = bits_ << 6 | static_cast<unsigned>(value);
        last_ = at;
        if (++characters_ % 4 == 1) return {};
        bytes_.push_back(static_cast<std::uint8_t>(bits_ >> (6 - 2 * ((characters_ + 3) % 4))));
        return {};
    }

    std::vector<std::uint8_t> bytes_;
    unsigned bits_ = 0;
    std::size_t characters_ = 0;
    std::size_t padding_ = 0;
    std::size_t last_ = 0;
};

std::string encode(std::string_view bytes) {
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
    // So that what is odd stands anywhere in the blocks that are decoded at once.
    const std::string front(input.number(2) % 8200, 'A');
    const std::string rest(input.rest());
    const std::string text = front + rest;
    require(decode(text) == Reference::decode(text), "both decoders give the same answer");

    const std::string bytes = front + rest;
    const auto again = base64Decode(encode(bytes));
    require(std::string(again.begin(), again.end()) == bytes, "what was encoded is decoded");
    return 0;
}
