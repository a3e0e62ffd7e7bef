#include "textapp/AppendixScanner.hpp"

#include <algorithm>
#include <initializer_list>

#include "textapp/Layout.hpp"

// Each lookup is defined as one search with a regular expression, in ECMAScript grammar and over
// UTF-8. The functions below return what that search would, but without regular expressions, in
// linear time and with constant stack. This is why:
//
// Searching UTF-16 finds the same. Both encodings are self-synchronising: in valid text, a valid
// name occurs only at character boundaries, and its occurrences are the same ones, in the same
// order, in both encodings. The other literals of the patterns are ASCII, which in both encodings
// is never part of another character. "[\s\S]" matches any byte, and "." any byte except "\n" and
// "\r" (it does match the three bytes of U+2028 or of U+2029). A capture starts and ends next to
// ASCII, so it consists of whole characters, which are the code units in between.
//
// The first occurrences suffice. A pattern is a sequence of literals with gaps between them, so a
// match is a sequence of positions, one for each literal, each at or after the end of the previous
// literal. The search prefers the leftmost start, then the shortest first gap, then the shortest
// second gap, and so on. Take the first occurrence of the first literal, the first occurrence of
// the second literal after that, and so on:
//   - None of these positions is greater than that of the same literal in any other match, because
//     each is the first one after a position of which this is already true.
//   - So if a literal is not found, there is no match, from this start or from a later one.
//   - If all are found, each is the one that the search prefers, given the positions before it.
// This is the whole argument for sections ("%[N]", "{", "%}") and elements ("<N", ">", "</N>"), and
// for the tag, the name and the "=" of attributes ("<E", "A", "=", "'", "'", ">").
//
// The gap between the quotes of an attribute, "(.*?)", must not contain a line end. From an opening
// quote, the shortest gap ends at the next quote. If it contains a line end, so does every longer
// gap, and the search goes on to the next opening quote, which is that next quote. The first pair
// of quotes without a line end between them also leaves the most room for the ">": if none follows
// this pair, none follows a later one.
//
// The gaps of the data URI, "data:image/(.*);base64,(.*)", are greedy and contain no line end. So a
// match is within a line, and the first line with a match counts. In a line, the first
// "data:image/" is the leftmost start and leaves the most room for the ";base64,": if none follows
// it, none follows a later "data:image/" in the line. Because the gaps are greedy, the first
// extends to the last ";base64,", and the second to the end of the line.
//
// A search for all elements continues at the end of the previous match and ends with the first
// failure, so all together it reads the text once for each literal.

namespace appserialization::textapp {

namespace {

constexpr auto npos = ustring_view::npos;

// The index after the first `wanted` at or after `from`. Returns npos if there is none or if `from`
// is npos, so that a chain of lookups needs only one check, at its end.
std::size_t findEndOf(ustring_view text, ustring_view wanted, std::size_t from) {
    const std::size_t found = from == npos ? npos : findText(text, wanted, from);
    return found == npos ? npos : found + wanted.size();
}

// The text from `begin` to the first `closer` after it.
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

// The text between the first two successive quotes at or after `from` that have no line end between
// them.
std::optional<ustring_view> findQuoted(ustring_view text, std::size_t from) {
    std::size_t begin = findEndOf(text, u"'", from);
    while (const auto quoted = upTo(text, u"'", begin)) {
        if (quoted->find_first_of(u"\n\r") == npos) return quoted;
        begin += quoted->size() + 1;
    }
    return std::nullopt;
}

// The data URI in a line, which is without its line end.
std::optional<ImageDataUri> findUriInLine(std::string_view line) {
    const std::size_t start = line.find(kImageUriStart);
    if (start == npos) return std::nullopt;
    const std::string_view uri = line.substr(start + kImageUriStart.size());
    // We search forwards although the last marker is wanted, because the standard library's
    // backward search compares at every byte.
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
    // The order is part of the format: "&amp;" comes after the angle brackets and before the
    // quotes.
    replaceAll(text, "&lt;", '<');
    replaceAll(text, "&gt;", '>');
    replaceAll(text, "&amp;", '&');
    replaceAll(text, "&apos;", '\'');
    replaceAll(text, "&quot;", '"');
}

}  // namespace

std::optional<ustring_view> findSection(ustring_view text, ustring_view sectionName) {
    const std::size_t marked =
        findEndOf(text, concat({kSectionOpen, sectionName, kSectionClose}), 0);
    return upTo(text, kBodyClose, findEndOf(text, kBodyOpen, marked));
}

ElementFinder::ElementFinder(ustring_view elementName)
    : startTag_(concat({u"<", elementName})), endTag_(concat({u"</", elementName, u">"})) {}

std::optional<ElementFinder::Element> ElementFinder::find(ustring_view text,
                                                          std::size_t from) const {
    const std::size_t begin = findEndOf(text, u">", findEndOf(text, startTag_, from));
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
    const std::size_t tag = findEndOf(text, concat({u"<", elementName}), 0);
    const std::size_t name = findEndOf(text, attributeName, tag);
    const auto value = findQuoted(text, findEndOf(text, u"=", name));
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
