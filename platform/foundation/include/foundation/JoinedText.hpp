#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <type_traits>

namespace foundation {

// A string literal in a form that can be a template argument, with its terminating zero.
template <class Char, std::size_t kSize>
struct FixedText {
    Char text[kSize]{};
    // The conversion is implicit so that callers of kJoinedText can write a plain literal.
    consteval FixedText(const Char (&literal)[kSize]) { std::copy(literal, literal + kSize, text); }
};

// Two ASCII literals joined at compile time, for constants that share their beginning:
//
//     constexpr const char16_t* kType = kJoinedText<kSchemaBase, u"/app/type">.data();
//
// The result is a zero-terminated std::array of the second literal's character type.
template <FixedText kBegin, FixedText kEnd>
inline constexpr auto kJoinedText = [] {
    constexpr std::size_t kBeginSize = std::size(kBegin.text) - 1;
    constexpr std::size_t kEndSize = std::size(kEnd.text);
    using Char = std::remove_cvref_t<decltype(kEnd.text[0])>;
    std::array<Char, kBeginSize + kEndSize> joined{};
    for (std::size_t i = 0; i < kBeginSize; ++i)
        joined[i] = static_cast<Char>(kBegin.text[i]);
    std::copy(kEnd.text, kEnd.text + kEndSize, joined.begin() + kBeginSize);
    return joined;
}();

}  // namespace foundation
