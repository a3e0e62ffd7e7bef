#include "textapp/AppendixScanner.hpp"

#include <algorithm>
#include <cstring>
#include <initializer_list>

// Each lookup is defined as one search with a regular expression, in ECMAScript grammar and over
// well-formed UTF-8: in a file, every ill-formed sequence counts as U+FFFD. The functions below
// return what that search would, but without regular expressions, in linear time and with constant
// stack, and leave ill-formed sequences as they are. This is why:
//
// Ill-formed sequences can be converted after the search. Where a text has some, which only a file
// does, all literals of the patterns are ASCII, names included. A sequence, well-formed or not,
// that begins with a byte beyond ASCII has no ASCII byte in it. So conversion keeps all ASCII
// characters in their order, adds none, and does to the bytes between two of them the same,
// whatever stands around. Hence the literals occur at corresponding places before and after it, and
// what is captured, which is always between two literals or line ends, converts to what would have
// been captured. It stays so when entity references are replaced, because they and what they stand
// for are ASCII, too. "[\s\S]" matches any byte, and "." any byte except "\n" and "\r" (it does
// match the three bytes of U+2028 or of U+2029).
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

constexpr auto npos = std::string_view::npos;

// In bytes; no marker of kSections is longer.
constexpr std::size_t kLongestMarker = [] {
    std::size_t longest = 0;
    for (const SectionRow& section : kSections)
        longest = std::max(longest, section.name.size());
    return kSectionOpen.size() + longest + kSectionClose.size();
}();

// The index of the first `wanted` in `text` at or after `from`, or npos. memchr(), which finds the
// first candidate, is several times as fast as memmem(), but only memmem() takes linear time
// however many candidates there are.
std::size_t findText(std::string_view text, std::string_view wanted, std::size_t from) {
    if (wanted.empty()) return from;
    const std::size_t candidate = text.find(wanted.front(), from);
    if (candidate == npos) return npos;
    const std::string_view rest = text.substr(candidate);
    if (rest.starts_with(wanted)) return candidate;
    const void* const found = ::memmem(rest.data(), rest.size(), wanted.data(), wanted.size());
    if (found == nullptr) return npos;
    return static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

// The index after the first `wanted` at or after `from`. Returns npos if there is none or if `from`
// is npos, so that a chain of lookups needs only one check, at its end.
std::size_t findEndOf(std::string_view text, std::string_view wanted, std::size_t from) {
    const std::size_t found = from == npos ? npos : findText(text, wanted, from);
    return found == npos ? npos : found + wanted.size();
}

// The text from `begin` to the first `closer` after it.
std::optional<std::string_view> upTo(std::string_view text, std::string_view closer,
                                     std::size_t begin) {
    const std::size_t end = begin == npos ? npos : findText(text, closer, begin);
    if (end == npos) return std::nullopt;
    return text.substr(begin, end - begin);
}

std::string concat(std::initializer_list<std::string_view> pieces) {
    std::string whole;
    for (const std::string_view piece : pieces) {
        whole += piece;
    }
    return whole;
}

// The body of the section whose marker ends at `markerEnd`; nothing if that is npos.
std::optional<std::string_view> bodyAfter(std::string_view text, std::size_t markerEnd) {
    return upTo(text, kBodyClose, findEndOf(text, kBodyOpen, markerEnd));
}

// The text between the first two successive quotes at or after `from` that have no line end between
// them.
std::optional<std::string_view> findQuoted(std::string_view text, std::size_t from) {
    std::size_t begin = findEndOf(text, "'", from);
    while (const auto quoted = upTo(text, "'", begin)) {
        if (quoted->find_first_of("\n\r") == npos) return quoted;
        begin += quoted->size() + 1;
    }
    return std::nullopt;
}

// The data URI in a line, which is without its line end.
std::optional<ImageDataUri> findUriInLine(std::string_view line) {
    const std::size_t format = findEndOf(line, kImageUriStart, 0);
    // We search forwards although the last marker is wanted, because the standard library's
    // backward search compares at every byte.
    std::size_t payload = npos;
    for (std::size_t next = findEndOf(line, kPayloadMarker, format); next != npos;
         next = findEndOf(line, kPayloadMarker, next)) {
        payload = next;
    }
    if (payload == npos) return std::nullopt;
    return ImageDataUri{line.substr(format, payload - kPayloadMarker.size() - format),
                        line.substr(payload)};
}

// Removes what comes before the first `end`, and `end` itself, from `text`, and returns the former.
std::string_view takeUntil(std::string_view& text, char end) {
    const std::string_view taken = text.substr(0, text.find(end));
    text.remove_prefix(std::min(taken.size() + 1, text.size()));
    return taken;
}

void replaceAll(std::string& text, std::string_view entity, char replacement) {
    const std::string_view source = text;
    std::size_t kept = source.find('&');
    if (kept == npos) return;
    for (std::size_t read = kept; read < source.size(); ++kept) {
        if (source[read] == '&' && source.substr(read).starts_with(entity)) {
            text[kept] = replacement;
            read += entity.size();
        } else {
            text[kept] = source[read++];
        }
    }
    text.resize(kept);
}

}  // namespace

std::optional<std::string_view> findSection(std::string_view text, std::string_view sectionName) {
    return bodyAfter(text, findEndOf(text, concat({kSectionOpen, sectionName, kSectionClose}), 0));
}

SectionFinder::SectionFinder() {
    markerEnds_.fill(npos);
}

void SectionFinder::search(std::string_view text) {
    for (std::size_t at = findText(text, kAppSectionOpen, next_); at != npos;
         at = findText(text, kAppSectionOpen, at + 1)) {
        note(text, at);
    }
    // A marker that the end of the text cuts is found by the next call.
    next_ = text.size() - std::min(text.size(), kLongestMarker - 1);
}

void SectionFinder::note(std::string_view text, std::size_t marker) {
    const std::size_t name = marker + kSectionOpen.size();
    for (std::size_t i = 0; i < kSections.size(); ++i) {
        const std::size_t nameEnd = name + kSections[i].name.size();
        if (markerEnds_[i] == npos && text.substr(name).starts_with(kSections[i].name) &&
            text.substr(nameEnd).starts_with(kSectionClose)) {
            markerEnds_[i] = nameEnd + kSectionClose.size();
        }
    }
}

std::array<std::string_view, kSections.size()> SectionFinder::bodies(std::string_view text) const {
    std::array<std::string_view, kSections.size()> bodies;
    std::ranges::transform(markerEnds_, bodies.begin(), [&](std::size_t markerEnd) {
        return bodyAfter(text, markerEnd).value_or("");
    });
    return bodies;
}

std::optional<std::string_view> findElement(std::string_view text, std::string_view elementName) {
    return takeElement(text, elementName);
}

std::optional<std::string_view> takeElement(std::string_view& text, std::string_view elementName) {
    const std::string endTag = concat({"</", elementName, ">"});
    const std::size_t begin = findEndOf(text, ">", findEndOf(text, concat({"<", elementName}), 0));
    const auto element = upTo(text, endTag, begin);
    if (element) text.remove_prefix(begin + element->size() + endTag.size());
    return element;
}

std::optional<std::string_view> findAttribute(std::string_view text, std::string_view elementName,
                                              std::string_view attributeName) {
    const std::size_t tag = findEndOf(text, concat({"<", elementName}), 0);
    const std::size_t name = findEndOf(text, attributeName, tag);
    const auto value = findQuoted(text, findEndOf(text, "=", name));
    if (!value) return std::nullopt;
    const auto closingQuote = static_cast<std::size_t>(value->data() - text.data()) + value->size();
    if (findText(text, ">", closingQuote + 1) == npos) return std::nullopt;
    return value;
}

std::optional<ImageDataUri> findImageDataUri(std::string_view text) {
    while (!text.empty()) {
        for (std::string_view lines = takeUntil(text, '\n'); !lines.empty();) {
            if (const auto uri = findUriInLine(takeUntil(lines, '\r'))) return uri;
        }
    }
    return std::nullopt;
}

std::string unescapedXMLEntities(std::string_view text) {
    std::string unescaped(text);
    // The order is part of the format: "&amp;" comes after the angle brackets and before the
    // quotes.
    replaceAll(unescaped, "&lt;", '<');
    replaceAll(unescaped, "&gt;", '>');
    replaceAll(unescaped, "&amp;", '&');
    replaceAll(unescaped, "&apos;", '\'');
    replaceAll(unescaped, "&quot;", '"');
    return unescaped;
}

}  // namespace appserialization::textapp
