#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "app/InputFiles.hpp"
#include "app/check/Checks.hpp"
#include "app/check/Findings.hpp"

namespace qzapp {
namespace {

// What merge programs write seven times or more, followed by a space or the end of the line.
constexpr char kOurs = '<', kMiddle = '=', kTheirs = '>';
constexpr std::size_t kShortestMark = 7;

struct Mark {
    char sign = '\0';  // 0 if the line has none
    std::size_t length = 0;
};

Mark markOf(std::string_view line) {
    if (line.empty()) return {};
    const char sign = line.front();
    if (sign != kOurs && sign != kMiddle && sign != kTheirs) return {};
    const std::size_t length = std::min(line.find_first_not_of(sign), line.size());
    const bool hasEnded = length == line.size() || line[length] == ' ' || line[length] == '\r';
    return length >= kShortestMark && hasEnded ? Mark{sign, length} : Mark{};
}

// The offset of the first three marks of equal length that enclose two versions of some lines.
std::size_t firstConflictIn(std::string_view text) {
    std::size_t start = std::string_view::npos, length = 0;
    bool isDivided = false;
    for (std::size_t at = 0, end = 0; at < text.size(); at = end + 1) {
        end = std::min(text.find('\n', at), text.size());
        const Mark mark = markOf(text.substr(at, end - at));
        if (mark.sign == kOurs) {
            start = at;
            length = mark.length;
            isDivided = false;
        } else if (mark.length == length && mark.sign == kMiddle) {
            isDivided = true;
        } else if (mark.length == length && mark.sign == kTheirs && isDivided) {
            return start;
        }
    }
    return std::string_view::npos;
}

}  // namespace

void checkConflicts(const std::string& part, std::string_view text, const std::string& fix,
                    Findings& findings) {
    const std::size_t start = firstConflictIn(text);
    if (start == std::string_view::npos) return;
    findings.add("code-conflict", part,
                 fmt::format("a merge has left a conflict at {}", placeOf(text, start)), fix);
}

}  // namespace qzapp
