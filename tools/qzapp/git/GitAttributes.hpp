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

// The content of a ".gitattributes" with our lines at its start, below a comment that says where
// they are from. So whatever a line of others says of an app stays in force: in git, the last line
// counts.
std::string withOurLines(const std::string& content);
// The content without the comment and the lines of ours below it.
std::string withoutOurLines(const std::string& content);

}  // namespace qzapp
