#include "fuzz/AppendixCases.hpp"

#include <appserialization/Functions.hpp>
#include <fl/i18n.hpp>

#include <algorithm>
#include <iterator>
#include <utility>

#include "textapp/AppendixScanner.hpp"

namespace fuzz::appendix {

namespace {

using fl::i18n::ustring_to_utf8;
using fl::i18n::utf8_to_ustring;

// Names that a search for literals could get wrong, and some that are patterns. There are sixteen,
// so that a hexadecimal digit chooses one.
constexpr std::u16string_view kNames[] = {u"Name", u"a",     u"aab",  u"",      u"'", u"=",
                                          u">",    u"]",     u"%}",   u"/Name", u"é", u"\U0001F600",
                                          u"=''>", u"[aN]+", u"N.me", u"a|Name"};

constexpr std::u16string_view kPieces[] = {
    u"%[",    u"]",      u"{",      u"}",       u"%}",       u"<", u">",          u"</",
    u"'",     u"''",     u"=",      u"\n",      u"\r",       u" ", u"aab",        u"&lt;",
    u"&amp;", u"&apos;", u"&quot;", u"amp;lt;", u"\"",       u"é", u"\U0001F600", u"\u2028",
    u"Name",  u"data:",  u"image/", u";base64", u";base64,",
};

// What the caller's variable holds before a call.
const ustring kUntouched = u"(untouched)";

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

// ASCII characters stand for themselves, so seeds can be read. Most other bytes stand for what is
// sought next, so most texts hold something to find.
ustring nextPiece(Input& input, const Case& made, const Lookup& lookup, std::size_t& next) {
    const std::uint8_t byte = input.byte();
    if (byte < 0x80) return ustring(1, byte);
    if (byte < 0xD0) {
        if (byte % 8 == 0) ++next;
        return utf8_to_ustring(named(lookup.sought[next++ % lookup.sought.size()], made));
    }
    if (byte < 0xF8) return ustring(kPieces[byte % std::size(kPieces)]);
    // Long enough for any search that looks at several bytes at once.
    const std::u16string_view piece = input.oneOf(kPieces);
    ustring run;
    for (std::size_t count = input.below(80); count > 0; --count)
        run += piece;
    return run;
}

}  // namespace

std::span<const Lookup> lookups() {
    return kLookups;
}

Case makeCase(Input input, std::size_t longest) {
    const Lookup& lookup = input.oneOf(kLookups);
    Case made{ustring(input.oneOf(kNames)), ustring(input.oneOf(kNames)), u""};
    for (std::size_t next = 0; !input.empty() && made.text.size() < longest;)
        made.text += nextPiece(input, made, lookup, next);
    return made;
}

bool hasPattern(const Case& input) {
    return (input.element + input.attribute).find_first_of(u".+|") != ustring::npos;
}

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

void requireSame(const Lookup& lookup, const Case& input, const Answer& ours,
                 const Answer& expected) {
    if (ours == expected) return;
    std::string rule = lookup.expression;
    for (const Answer& each :
         {Answer{input.element, input.attribute, input.text}, expected, ours}) {
        for (const ustring& part : each)
            rule += " [" + fl::i18n::to_display(part) + "]";
        rule += '\n';
    }
    require(false, rule.c_str());
}

}  // namespace fuzz::appendix
