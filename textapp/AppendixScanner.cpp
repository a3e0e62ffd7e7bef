#include "textapp/AppendixScanner.hpp"

#include <algorithm>
#include <initializer_list>

#include "textapp/Layout.hpp"

// A lookup is defined as one search, over UTF-8, with a regular expression in ECMAScript grammar. The
// functions below give the same answers without one, in linear time and constant stack. The reasons:
//
// UTF-16 instead of UTF-8. Both encodings are self-synchronising: in valid text a valid name occurs
// only between characters, and it occurs equally often, in the same order, in either encoding. The
// other literals of the patterns are ASCII, which in either encoding is never part of another
// character. "[\s\S]" takes any byte, and "." any byte but "\n" and "\r" (U+2028 and U+2029 are
// three bytes each that "." takes). A capture begins and ends beside ASCII, so it holds whole
// characters and converts back to just the code units between.
//
// First choices suffice. A match of a pattern is a rising tuple of positions, one a literal, each at
// or behind the end of the one before, with any characters in the gaps. The search prefers the
// leftmost start, then the shortest first gap, then the shortest second gap, and so on. Take the
// first literal's first occurrence, then the second's first behind that, and so on:
//   - these positions are at most those of any other match, literal by literal, because each is the
//     first behind a position that is already at most the other's;
//   - so when one literal is not found, no match exists, from this start or a later one;
//   - and when all are found, each is what the search prefers, given those before.
// This is the whole argument for sections ("%[N]", "{", "%}") and elements ("<N", ">", "</N>"), and
// for the tag, name and "=" of attributes ("<E", "A", "=", "'", "'", ">").
//
// The quotes of an attribute have a gap "(.*?)" that must not hold a line end. For an opening quote
// the shortest gap ends at the next quote. If a line end lies before that, every longer gap holds it
// too, and the next opening quote is tried, which is that next quote. The first pair that passes
// also leaves most room for the ">": if none follows it, none follows a later pair.
//
// The data URI ("data:image/(.*);base64,(.*)") has greedy gaps without line ends, so a match lies in
// one line, and the first line with a match counts. In a line the first "data:image/" is the leftmost
// start and leaves most room for the ";base64,". The first gap, being greedy, reaches to the last
// ";base64,", the second to the end of the line. If there is no ";base64," behind the first
// "data:image/", there is none behind a later one in that line either.
//
// Repeated searches for elements start at the end of the match before. Each finds its literals
// behind that, and the first failure ends them, so that all together read the text once a literal.

namespace appserialization::textapp {

namespace {

constexpr auto npos = ustring_view::npos;

// Index behind the first `wanted` at or after `from`; npos when there is none or `from` is npos, so
// that a chain of lookups needs one check at its end.
std::size_t findBehind(ustring_view text, ustring_view wanted, std::size_t from) {
    const std::size_t found = from == npos ? npos : findText(text, wanted, from);
    return found == npos ? npos : found + wanted.size();
}

// What lies between `begin` and the first `closer` behind it.
std::optional<ustring_view> upTo(ustring_view text, ustring_view closer, std::size_t begin) {
    const std::size_t end = begin == npos ? npos : findText(text, closer, begin);
    if (end == npos) return std::nullopt;
    return text.substr(begin, end - begin);
}

ustring concat(std::initializer_list<ustring_view> pieces) {
    ustring whole;
    for (const ustring_view piece : pieces) {
        whole += piece;
    }
    return whole;
}

// The text between the first two neighbouring quotes at or after `from` with no line end between.
std::optional<ustring_view> findQuoted(ustring_view text, std::size_t from) {
    std::size_t begin = findBehind(text, u"'", from);
    while (const auto quoted = upTo(text, u"'", begin)) {
        if (quoted->find_first_of(u"\n\r") == npos) return quoted;
        begin += quoted->size() + 1;
    }
    return std::nullopt;
}

// The data URI in a text that has no line end.
std::optional<ImageDataUri> findUriInLine(std::string_view line) {
    const std::size_t start = line.find(kImageUriStart);
    if (start == npos) return std::nullopt;
    const std::string_view uri = line.substr(start + kImageUriStart.size());
    // Forwards although the last one is wanted: the library's backward search compares at every byte.
    std::size_t marker = npos;
    for (std::size_t next = uri.find(kPayloadMarker); next != npos;
         next = uri.find(kPayloadMarker, next + 1)) {
        marker = next;
    }
    if (marker == npos) return std::nullopt;
    return ImageDataUri{uri.substr(0, marker), uri.substr(marker + kPayloadMarker.size())};
}

template <class Char>
bool beginsWithAscii(std::basic_string_view<Char> text, std::string_view ascii) {
    if (text.size() < ascii.size()) return false;
    for (std::size_t i = 0; i < ascii.size(); ++i) {
        if (text[i] != static_cast<Char>(ascii[i])) return false;
    }
    return true;
}

template <class Char>
void replaceAll(std::basic_string<Char>& text, std::string_view entity, char replacement) {
    const std::basic_string_view<Char> source = text;
    std::size_t kept = source.find(Char('&'));
    if (kept == npos) return;
    for (std::size_t read = kept; read < source.size(); ++kept) {
        if (source[read] == Char('&') && beginsWithAscii(source.substr(read), entity)) {
            text[kept] = static_cast<Char>(replacement);
            read += entity.size();
        } else {
            text[kept] = source[read++];
        }
    }
    text.resize(kept);
}

template <class Char>
void unescape(std::basic_string<Char>& text) {
    if (text.find(Char('&')) == npos) return;
    // The order is part of the format: "&amp;" goes before the quotes and after the angle brackets.
    replaceAll(text, "&lt;", '<');
    replaceAll(text, "&gt;", '>');
    replaceAll(text, "&amp;", '&');
    replaceAll(text, "&apos;", '\'');
    replaceAll(text, "&quot;", '"');
}

}  // namespace

std::optional<ustring_view> findSection(ustring_view text, ustring_view sectionName) {
    const std::size_t marked =
        findBehind(text, concat({kSectionOpen, sectionName, kSectionClose}), 0);
    return upTo(text, kBodyClose, findBehind(text, kBodyOpen, marked));
}

ElementFinder::ElementFinder(ustring_view elementName)
    : startTag_(concat({u"<", elementName})), endTag_(concat({u"</", elementName, u">"})) {}

std::optional<ElementFinder::Element> ElementFinder::find(ustring_view text,
                                                          std::size_t from) const {
    const std::size_t begin = findBehind(text, u">", findBehind(text, startTag_, from));
    const auto content = upTo(text, endTag_, begin);
    if (!content) return std::nullopt;
    return Element{*content, begin + content->size() + endTag_.size()};
}

std::optional<ustring_view> findElement(ustring_view text, ustring_view elementName) {
    const auto element = ElementFinder(elementName).find(text);
    if (!element) return std::nullopt;
    return element->text;
}

std::optional<ustring_view> findAttribute(ustring_view text, ustring_view elementName,
                                          ustring_view attributeName) {
    const std::size_t tag = findBehind(text, concat({u"<", elementName}), 0);
    const std::size_t name = findBehind(text, attributeName, tag);
    const auto value = findQuoted(text, findBehind(text, u"=", name));
    if (!value) return std::nullopt;
    const auto closingQuote = static_cast<std::size_t>(value->data() - text.data()) + value->size();
    if (findText(text, u">", closingQuote + 1) == npos) return std::nullopt;
    return value;
}

std::optional<ImageDataUri> findImageDataUri(std::string_view text) {
    while (!text.empty()) {
        const auto lineEnd = std::find_if(text.begin(), text.end(),
                                          [](char byte) { return byte == '\n' || byte == '\r'; });
        const std::string_view line(text.begin(), lineEnd);
        if (const auto uri = findUriInLine(line)) return uri;
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return std::nullopt;
}

void unescapeXMLEntities(ustring& text) {
    unescape(text);
}

void unescapeXMLEntities(std::string& utf8) {
    unescape(utf8);
}

}  // namespace appserialization::textapp
