// Compares the appendix functions with the regular expressions that define them.

#include <fl/i18n.hpp>

#include <map>
#include <regex>
#include <string>

#include "fuzz/AppendixCases.hpp"

namespace {

using fl::i18n::utf8_to_ustring;
using fuzz::appendix::Answer;
using fuzz::appendix::Case;
using fuzz::appendix::Lookup;
using fuzz::appendix::ustring;

// A backtracking expression recurses once for each byte, and the longest one takes time in
// proportion to the fifth power of the length.
constexpr std::size_t kLongestText = 64;

// Returns what the groups of a pattern capture in all matches.
Answer captured(const ustring& input, const std::string& pattern) {
    static std::map<std::string, std::regex> compiled;
    const std::regex& regex = compiled.try_emplace(pattern, pattern).first->second;
    const std::string text = fl::i18n::ustring_to_utf8(input);
    Answer groups;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
        for (std::size_t group = 1; group < match->size(); ++group)
            groups.push_back(utf8_to_ustring((*match)[group].str()));
    }
    return groups;
}

void requireEqual(const Lookup& lookup, const Case& input) {
    Answer ours;
    try {
        ours = lookup.ours(input);
    } catch (const std::regex_error&) {
        return fuzz::require(hasPattern(input), "only the search for a pattern may take too long");
    }
    const auto matches = captured(input.text, named(lookup.expression, input));
    requireSame(lookup, input, ours, lookup.expected(matches));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Case input = fuzz::appendix::makeCase({data, size}, kLongestText);
    for (const Lookup& lookup : fuzz::appendix::lookups())
        requireEqual(lookup, input);
    return 0;
}
