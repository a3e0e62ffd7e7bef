#include "tools/qzapp/git/GitAttributes.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstddef>

namespace qzapp {
namespace {

constexpr std::string_view kComment = "# From \"qzapp git-setup\":";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool isOurs(std::string_view line) {
    return std::ranges::any_of(attributesLines(),
                               [&](const AttributesLine& ours) { return line == textOf(ours); });
}

}  // namespace

// "-text", because the line ends that git would convert are no line ends in a package.
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
    std::string ours = fmt::format("{}\n", kComment);
    for (const AttributesLine& line : attributesLines())
        ours += textOf(line);
    if (content.find(ours) != std::string::npos) return content;
    // git skips a byte-order mark, but only in front of everything.
    const std::size_t start = content.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
    return std::string(content).insert(start, ours);
}

std::string withoutOurLines(const std::string& content) {
    const std::size_t start = content.find(kComment);
    if (start == std::string::npos) return content;
    const auto endOfLine = [&](std::size_t at) {
        return std::min(content.find('\n', at), content.size() - 1) + 1;
    };
    std::size_t end = endOfLine(start);
    while (end < content.size() && isOurs(content.substr(end, endOfLine(end) - end)))
        end = endOfLine(end);
    return std::string(content).erase(start, end - start);
}

}  // namespace qzapp
