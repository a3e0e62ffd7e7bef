#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qzapp {

// What git is to do with the files of one pattern.
struct AttributesLine {
    const char* pattern;
    std::vector<std::string_view> attributes;
};

// The lines of ".gitattributes" by which git treats apps as apps.
std::vector<AttributesLine> attributesLines();
// As they stand in the file.
std::string textOf(const AttributesLine& line);

// The content of a ".gitattributes" with our lines at its end, below a comment that says where they are
// from. Lines of others stay, and an attribute that one of them gives to the pattern is not given again:
// it would override theirs.
std::string withOurLines(const std::string& content);
// The content without the comment and the lines of ours below it.
std::string withoutOurLines(const std::string& content);

// Whether git does with the files of each pattern what attributesLines() say.
bool hasAllAttributes(const std::string& content);

}  // namespace qzapp
