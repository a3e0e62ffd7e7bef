#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <type_traits>

namespace foundation {

// A literal as the argument of a template.
template <class Char, std::size_t kSize>
struct FixedText {
    Char text[kSize]{};
    consteval FixedText(const Char (&literal)[kSize]) {  // implicit on purpose
        std::copy(literal, literal + kSize, text);
    }
};

// Two ASCII texts as one constant, for names that share their beginning: kJoinedText<kBase, "/a">.data()
// is zero-terminated, in characters of the second text's type.
template <FixedText kBegin, FixedText kEnd>
inline constexpr auto kJoinedText = [] {
    constexpr std::size_t kBeginSize = sizeof(kBegin.text) / sizeof(kBegin.text[0]) - 1;
    constexpr std::size_t kEndSize = sizeof(kEnd.text) / sizeof(kEnd.text[0]);
    using Char = std::remove_cvref_t<decltype(kEnd.text[0])>;
    std::array<Char, kBeginSize + kEndSize> joined{};
    for (std::size_t i = 0; i < kBeginSize; ++i)
        joined[i] = static_cast<Char>(kBegin.text[i]);
    std::copy(kEnd.text, kEnd.text + kEndSize, joined.begin() + kBeginSize);
    return joined;
}();

}  // namespace foundation
