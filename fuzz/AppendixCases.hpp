#pragma once

#include <appserialization/ustring.hpp>

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Fuzzing.hpp"

// The lookups of the appendix, and texts in which they find something.
namespace fuzz::appendix {

using appserialization::ustring;
using Answer = std::vector<ustring>;

struct Case {
    ustring element, attribute, text;
};

struct Lookup {
    const char* expression;                // with "E" and "A" for the names
    std::vector<std::string_view> sought;  // its literals
    Answer (*ours)(const Case& input);
    Answer (*expected)(Answer captured);  // from what the groups captured, in all matches
};

std::span<const Lookup> lookups();

// A text of some `longest` units at most, for one of the lookups above all.
Case makeCase(Input input, std::size_t longest);

// Whether a name is an expression of its own, whose search may be refused.
bool hasPattern(const Case& input);

// `text` with the names in the place of "E" and "A".
std::string named(std::string_view text, const Case& input);

// That two answers are equal; otherwise the message has all of it.
void requireSame(const Lookup& lookup, const Case& input, const Answer& ours,
                 const Answer& expected);

}  // namespace fuzz::appendix
