#pragma once

#include <appserialization/ustring.hpp>

#include "textapp/TextSearch.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace appserialization::textapp {

// The lookups of the appendix without any copy: texts and names are valid UTF-16 and names are
// literal; results are views into the text. AppendixScanner.cpp says why each answers what its
// regular expression would.

// The body of the first section with that name.
std::optional<ustring_view> findSection(ustring_view text, ustring_view sectionName);

// Finds elements of one name.
class ElementFinder {
public:
    // An element's text, and the index behind its end tag.
    struct Element {
        ustring_view text;
        std::size_t end;
    };

    explicit ElementFinder(ustring_view elementName);

    // The first element at or after `from`.
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

// The parts of an image's data URI. Views into the text, which is UTF-8.
struct ImageDataUri {
    std::string_view format;
    std::string_view payload;
};

// The first line of `text` that holds a data URI of an image. Of several ";base64," in that line the
// last one counts.
std::optional<ImageDataUri> findImageDataUri(std::string_view text);

// Replaces the entity references &lt; &gt; &amp; &apos; &quot;, one kind after the other in that
// order, in place. So "&amp;lt;" becomes "&lt;", but "&amp;quot;" becomes a double quote.
void unescapeXMLEntities(ustring& text);
void unescapeXMLEntities(std::string& utf8);

}  // namespace appserialization::textapp
