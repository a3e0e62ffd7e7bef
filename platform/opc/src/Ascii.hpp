#pragma once

#include <algorithm>
#include <string>
#include <string_view>

// Character classes and case of ASCII, whatever the locale. Names in a package are compared so:
// every other character differs from all others.
namespace opc::ascii {

// Whether the text is all ASCII.
constexpr bool isAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return (c & 0x80) == 0; });
}

template <class Char>
constexpr bool isLetter(Char c) {
    return (c >= Char('a') && c <= Char('z')) || (c >= Char('A') && c <= Char('Z'));
}

template <class Char>
constexpr bool isDigit(Char c) {
    return c >= Char('0') && c <= Char('9');
}

template <class Char>
constexpr Char toLower(Char c) {
    return c >= Char('A') && c <= Char('Z') ? Char(c + ('a' - 'A')) : c;
}

template <class Char>
constexpr Char toUpper(Char c) {
    return c >= Char('a') && c <= Char('z') ? Char(c - ('a' - 'A')) : c;
}

template <class Char>
std::basic_string<Char> lowered(std::basic_string_view<Char> text) {
    std::basic_string<Char> lower(text);
    for (Char& c : lower)
        c = toLower(c);
    return lower;
}

template <class Text>
bool equalIgnoringCase(const Text& a, const Text& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](auto x, auto y) { return toLower(x) == toLower(y); });
}

}  // namespace opc::ascii
