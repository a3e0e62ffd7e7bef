#include "tools/qzapp/git/GitAttributes.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <sstream>

namespace qzapp {
namespace {

constexpr std::string_view kComment = "# From \"qzapp git-setup\":";

std::vector<std::string> linesOf(const std::string& content) {
    std::vector<std::string> lines;
    std::istringstream stream(content);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> wordsOf(const std::string& line) {
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

// "diff" of "diff=qzapp", "-diff" and "!diff".
std::string_view nameOf(std::string_view attribute) {
    const std::string_view name = attribute.substr(0, attribute.find('='));
    return name.substr(std::min(name.find_first_not_of("-!"), name.size()));
}

// The last word on each attribute of a pattern. "binary" is git's macro for three others.
std::map<std::string, std::string> attributesIn(const std::string& content,
                                                std::string_view pattern) {
    std::map<std::string, std::string> found;
    for (const std::string& line : linesOf(content)) {
        const auto words = wordsOf(line);
        if (words.empty() || words[0] != pattern) continue;
        for (auto word = words.begin() + 1; word != words.end(); ++word) {
            if (*word == "binary") found["diff"] = found["merge"] = found["text"] = *word;
            found[std::string(nameOf(*word))] = *word;
        }
    }
    return found;
}

bool isOurs(const std::string& line) {
    const auto words = wordsOf(line);
    return std::ranges::any_of(attributesLines(), [&](const AttributesLine& ours) {
        return words.size() > 1 && words[0] == ours.pattern &&
               std::all_of(words.begin() + 1, words.end(), [&](const std::string& word) {
                   return std::ranges::find(ours.attributes, word) != ours.attributes.end();
               });
    });
}

}  // namespace

// Line ends within a package are none.
std::vector<AttributesLine> attributesLines() {
    return {
        {"*.kvpkg", {"-text", "diff=qzapp", "filter=qzapp", "merge=qzapp"}},
        {"*.k", {"merge=qzapp"}},
    };
}

std::string textOf(const AttributesLine& line) {
    return fmt::format("{} {}\n", line.pattern, fmt::join(line.attributes, " "));
}

std::string withOurLines(const std::string& content) {
    std::string added;
    for (AttributesLine line : attributesLines()) {
        const auto present = attributesIn(content, line.pattern);
        std::erase_if(line.attributes, [&](std::string_view attribute) {
            return present.contains(std::string(nameOf(attribute)));
        });
        if (!line.attributes.empty()) added += textOf(line);
    }
    if (added.empty()) return content;
    const bool isOpen = !content.empty() && content.back() != '\n';
    return fmt::format("{}{}{}\n{}", content, isOpen ? "\n" : "", kComment, added);
}

std::string withoutOurLines(const std::string& content) {
    std::string rest;
    bool isBelowComment = false;
    for (std::size_t start = 0; start < content.size();) {
        const std::size_t end = std::min(content.find('\n', start), content.size() - 1) + 1;
        const std::string line = content.substr(start, end - start);
        isBelowComment = line.starts_with(kComment) || (isBelowComment && isOurs(line));
        if (!isBelowComment) rest += line;
        start = end;
    }
    return rest;
}

bool hasAllAttributes(const std::string& content) {
    return std::ranges::all_of(attributesLines(), [&](const AttributesLine& line) {
        const auto present = attributesIn(content, line.pattern);
        return std::ranges::all_of(line.attributes, [&](std::string_view attribute) {
            const auto found = present.find(std::string(nameOf(attribute)));
            return found != present.end() && found->second == attribute;
        });
    });
}

}  // namespace qzapp
