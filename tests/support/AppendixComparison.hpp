#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace test_support {

// What a case asks for. Its text is mostly made of what the lookup looks for, so that most texts hold
// something to find.
enum class AppendixLookup { Section, Element, Attribute, DataUri };

// A text and names for the appendix functions, made of the pieces that the appendix format has.
struct AppendixCase {
    AppendixLookup lookup;
    std::u16string text;
    std::u16string elementName;
    std::u16string attributeName;
};

// Any bytes make a case, and equal bytes the same one.
AppendixCase makeAppendixCase(std::span<const std::uint8_t> bytes);

// How many answers were compared, and in how many of them something was found.
struct AppendixTally {
    std::uint64_t compared = 0;
    std::uint64_t found = 0;
};

// Asks the library's functions for this lookup and the regular expressions that define them the same.
// Returns a description of the first difference, or "".
std::string compareWithExpressions(const AppendixCase& input, AppendixTally& tally);

}  // namespace test_support
