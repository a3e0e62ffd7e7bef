#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "textapp/Layout.hpp"

namespace appserialization::textapp {

// The lookups in an appendix, in time linear in the length of the text and without copying it.
// Texts are what a file holds: UTF-8, but possibly with ill-formed sequences. Names have to be
// well-formed, and must not be patterns (PatternScanner.hpp is for those); neither is checked here.
// Results are views into the text, and nullopt if nothing is found. AppendixScanner.cpp explains
// why each lookup finds what its regular expression would.

// The body of the first section with that name.
std::optional<std::string_view> findSection(std::string_view text, std::string_view sectionName);

// Finds the sections of kSections, all in one pass, in a text that is still growing, so that a file
// can be searched while it is read and what was read last is in the processor's cache.
class SectionFinder {
public:
    SectionFinder();

    // Searches what has been appended to `text` since the previous call.
    void search(std::string_view text);

    // The bodies of the sections, in the order of kSections; empty for those that the text, which
    // must be complete and searched, does not have.
    std::array<std::string_view, kSections.size()> bodies(std::string_view text) const;

private:
    void note(std::string_view text, std::size_t marker);

    std::size_t next_ = 0;  // no marker that starts before this is still to be found
    std::array<std::size_t, kSections.size()> markerEnds_;  // of each first marker, or npos
};

// The text of the first element with that name.
std::optional<std::string_view> findElement(std::string_view text, std::string_view elementName);

// Like findElement(), and removes everything up to the end of that element from `text`, so that the
// next call finds the next one.
std::optional<std::string_view> takeElement(std::string_view& text, std::string_view elementName);

// The single-quoted value of an attribute of the first element with that name.
std::optional<std::string_view> findAttribute(std::string_view text, std::string_view elementName,
                                              std::string_view attributeName);

// The parts of an image's data URI.
struct ImageDataUri {
    std::string_view format;   // "png"
    std::string_view payload;  // base64, not checked
};

// The data URI of the first line of `text` that holds one of an image. If that line holds
// ";base64," several times, the last one ends the format.
std::optional<ImageDataUri> findImageDataUri(std::string_view text);

// `text` with the entity references &lt; &gt; &amp; &apos; &quot; replaced: all of one kind, then
// all of the next, in that order. So "&amp;lt;" becomes "&lt;", but "&amp;quot;" becomes a double
// quote.
std::string unescapedXMLEntities(std::string_view text);

}  // namespace appserialization::textapp
