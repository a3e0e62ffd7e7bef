#pragma once

#include <appserialization/ustring.hpp>

#include "textapp/TextSearch.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace appserialization::textapp {

// The lookups in an appendix, in time linear in the length of the text and without copying it.
// Texts and names have to be valid UTF-16, and names must not be patterns (PatternScanner.hpp is
// for those); neither is checked here. Results are views into the text, and nullopt if nothing is
// found. AppendixScanner.cpp explains why each lookup finds what its regular expression would.

// The body of the first section with that name.
std::optional<ustring_view> findSection(ustring_view text, ustring_view sectionName);

// Finds the elements with one name, one after the other.
class ElementFinder {
public:
    struct Element {
        ustring_view text;  // between the tags
        std::size_t end;    // index after the end tag, from where to find the next element
    };

    explicit ElementFinder(ustring_view elementName);

    // The first element that starts at or after `from`.
    std::optional<Element> find(ustring_view text, std::size_t from = 0) const;

private:
    ustring startTag_;  // without its closing ">"
    ustring endTag_;
};

// The text of the first element with that name.
std::optional<ustring_view> findElement(ustring_view text, ustring_view elementName);

// The single-quoted value of an attribute of the first element with that name.
std::optional<ustring_view> findAttribute(ustring_view text, ustring_view elementName,
                                          ustring_view attributeName);

// The parts of an image's data URI, as views into its text.
struct ImageDataUri {
    std::string_view format;   // "png"
    std::string_view payload;  // base64, not checked
};

// The data URI of the first line of `text` that holds one of an image. If that line holds
// ";base64," several times, the last one ends the format. `text` is UTF-8.
std::optional<ImageDataUri> findImageDataUri(std::string_view text);

// Replaces the entity references &lt; &gt; &amp; &apos; &quot; in place: all of one kind, then all
// of the next, in that order. So "&amp;lt;" becomes "&lt;", but "&amp;quot;" becomes a double
// quote.
void unescapeXMLEntities(ustring& text);
void unescapeXMLEntities(std::string& utf8);

}  // namespace appserialization::textapp
