#pragma once

#include <appserialization/ustring.hpp>

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Fuzzing.hpp"

// The lookups in an appendix, and texts in which they find something.
namespace fuzz::appendix {

using appserialization::ustring;
using Answer = std::vector<ustring>;

struct Case {
    ustring element, attribute, text;
};

struct Lookup {
    const char* expression;                // with "E" and "A" in the places of the names
    std::vector<std::string_view> sought;  // the literals in it
    Answer (*ours)(const Case& input);
    Answer (*expected)(Answer captured);  // what follows from the captures of all matches
};

std::span<const Lookup> lookups();

// Makes a text of about `longest` units at most, which suits one of the lookups above all.
Case makeCase(Input input, std::size_t longest);

// Whether a name is itself a regular expression, so that a search for it may be refused.
bool hasPattern(const Case& input);

// Returns `text` with the names in the places of "E" and "A".
std::string named(std::string_view text, const Case& input);

// Ends the process with a message that shows everything if the two answers differ.
void requireSame(const Lookup& lookup, const Case& input, const Answer& ours,
                 const Answer& expected);

}  // namespace fuzz::appendix
