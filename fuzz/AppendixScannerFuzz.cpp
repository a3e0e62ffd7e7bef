// The appendix functions against the regular expressions that define them.

#include <appserialization/Functions.hpp>
#include <fl/i18n.hpp>

#include <algorithm>
#include <map>
#include <regex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/Fuzzing.hpp"
#include "textapp/AppendixScanner.hpp"

namespace {

using appserialization::ustring;
using fl::i18n::ustring_to_utf8;
using fl::i18n::utf8_to_ustring;

// A backtracking expression recurses once a byte, and the longest takes the fifth power of the bytes.
constexpr std::size_t kLongestText = 200;

// Names that literal searches could get wrong, and some that are patterns. Sixteen, so that digits
// choose from them.
constexpr std::u16string_view kNames[] = {u"Name", u"a",     u"aab",  u"",      u"'", u"=",
                                          u">",    u"]",     u"%}",   u"/Name", u"é", u"\U0001F600",
                                          u"=''>", u"[aN]+", u"N.me", u"a|Name"};

constexpr std::u16string_view kPieces[] = {
    u"%[",    u"]",      u"{",      u"}",       u"%}",       u"<", u">",          u"</",
    u"'",     u"''",     u"=",      u"\n",      u"\r",       u" ", u"aab",        u"&lt;",
    u"&amp;", u"&apos;", u"&quot;", u"amp;lt;", u"\"",       u"é", u"\U0001F600", u"\u2028",
    u"Name",  u"data:",  u"image/", u";base64", u";base64,",
};

using Answer = std::vector<ustring>;

struct Case {
    ustring element, attribute, text;
};

// What the caller's value holds before a call.
const ustring kUntouched = u"(untouched)";

// `text` with the names in the place of "E" and "A".
std::string named(std::string_view text, const Case& input) {
    std::string all;
    for (const char c : text) {
        if (c == 'E' || c == 'A') {
            all += ustring_to_utf8(c == 'E' ? input.element : input.attribute);
        } else {
            all += c;
        }
    }
    return all;
}

// What the groups of a pattern capture, in all matches.
Answer captured(const ustring& input, const std::string& pattern) {
    static std::map<std::string, std::regex> compiled;
    const std::regex& regex = compiled.try_emplace(pattern, pattern).first->second;
    const std::string text = ustring_to_utf8(input);
    Answer groups;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
        for (std::size_t group = 1; group < match->size(); ++group)
            groups.push_back(utf8_to_ustring((*match)[group].str()));
    }
    return groups;
}

ustring unescaped(ustring text) {
    const std::pair<std::u16string_view, std::u16string_view> entities[] = {
        {u"&lt;", u"<"}, {u"&gt;", u">"}, {u"&amp;", u"&"}, {u"&apos;", u"'"}, {u"&quot;", u"\""}};
    for (const auto& [entity, character] : entities) {
        for (std::size_t at = 0; (at = text.find(entity, at)) != ustring::npos; ++at)
            text.replace(at, entity.size(), character);
    }
    return text;
}

Answer firstUnescaped(Answer groups) {
    return {groups.empty() ? kUntouched : unescaped(groups.front())};
}

constexpr const char* kElement = R"(<E[\s\S]*?>([\s\S]*?)</E>)";

struct Lookup {
    const char* expression;                // with "E" and "A" for the names
    std::vector<std::string_view> sought;  // its literals
    Answer (*ours)(const Case& input);
    Answer (*expected)(Answer captured);
};

const Lookup kLookups[] = {
    {R"(%\[E\][\s\S]*?\{([\s\S]*?)%\})",
     {"%[E]", "{", "%}"},
     [](const Case& input) {
         return Answer{appserialization::getKAppAppendixSection(input.text, input.element)};
     },
     [](Answer captured) { return Answer{captured.empty() ? u"" : captured.front()}; }},
    {kElement,
     {"<E", ">", "</E>"},
     [](const Case& input) {
         ustring value = kUntouched;
         appserialization::readXMLElement(input.text, input.element, value);
         return Answer{value};
     },
     firstUnescaped},
    {kElement,
     {"<E>", "</E>"},
     [](const Case& input) {
         Answer values;
         appserialization::readXMLElements(input.text, input.element, values);
         return values;
     },
     [](Answer captured) {
         for (ustring& value : captured)
             appserialization::trim(value);
         return captured;
     }},
    {R"(<E[\s\S]*?A[\s\S]*?=[\s\S]*?'(.*?)'[\s\S]*?>)",
     {"<E", "A", "=", "'", "'", ">"},
     [](const Case& input) {
         ustring value = kUntouched;
         appserialization::readXMLElementAttribute(input.text, input.element, input.attribute,
                                                   value);
         return Answer{value};
     },
     firstUnescaped},
    {"data:image/(.*);base64,(.*)",
     {"data:image/", ";base64,", "\n"},
     [](const Case& input) {
         const std::string text = ustring_to_utf8(input.text);
         const auto uri = appserialization::textapp::findImageDataUri(text);
         if (!uri) return Answer();
         return Answer{utf8_to_ustring(uri->format), utf8_to_ustring(uri->payload)};
     },
     [](Answer captured) {
         captured.resize(std::min(captured.size(), std::size_t{2}));
         return captured;
     }},
};

// ASCII stands for itself, so that seeds can be read. Most of the other bytes stand for what is sought
// next, so that most texts hold something to find.
ustring nextPiece(fuzz::Input& input, const Case& made, const Lookup& lookup, std::size_t& next) {
    const std::uint8_t byte = input.byte();
    if (byte < 0x80) return ustring(1, byte);
    if (byte < 0xD0) {
        if (byte % 8 == 0) ++next;
        return utf8_to_ustring(named(lookup.sought[next++ % lookup.sought.size()], made));
    }
    if (byte < 0xF8) return ustring(kPieces[byte % std::size(kPieces)]);
    // Long enough to put what follows into another block of a vectorised search.
    const std::u16string_view piece = input.oneOf(kPieces);
    ustring run;
    for (std::size_t count = input.below(80); count > 0; --count)
        run += piece;
    return run;
}

Case makeCase(fuzz::Input input) {
    const Lookup& lookup = input.oneOf(kLookups);
    Case made{ustring(input.oneOf(kNames)), ustring(input.oneOf(kNames)), u""};
    for (std::size_t next = 0; !input.empty() && made.text.size() < kLongestText;)
        made.text += nextPiece(input, made, lookup, next);
    return made;
}

void requireEqual(const Lookup& lookup, const Case& input) {
    Answer ours;
    try {
        ours = lookup.ours(input);
    } catch (const std::regex_error&) {
        const bool isPattern =
            (input.element + input.attribute).find_first_of(u".+|") != ustring::npos;
        return fuzz::require(isPattern, "only the search for a pattern may take too long");
    }
    const Answer expected = lookup.expected(captured(input.text, named(lookup.expression, input)));
    if (ours == expected) return;
    std::string rule = lookup.expression;
    for (const Answer& each :
         {Answer{input.element, input.attribute, input.text}, expected, ours}) {
        for (const ustring& part : each)
            rule += " [" + fl::i18n::to_display(part) + "]";
        rule += '\n';
    }
    fuzz::require(false, rule.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Case input = makeCase({data, size});
    for (const Lookup& lookup : kLookups)
        requireEqual(lookup, input);
    return 0;
}
