#include "tools/qzapp/check/FindingsSheet.hpp"

#include <fmt/format.h>

#include <array>
#include <cstddef>

#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/TerminalText.hpp"

namespace qzapp {
namespace {

constexpr std::size_t kIndent = 4;
constexpr std::array kSeverities = {Severity::Error, Severity::Warning, Severity::Note};

std::string counts(const Findings& findings) {
    std::string text;
    for (const Severity severity : kSeverities) {
        const std::size_t count = findings.count(severity);
        if (count == 0) continue;
        text += fmt::format("{}{} {}{}", text.empty() ? "" : ", ", count, nameOf(severity),
                            count == 1 ? "" : "s");
    }
    return text.empty() ? "no findings" : text;
}

std::string indented(const std::string& text) {
    std::string lines;
    for (const std::string& line : wrapped(visible(text), outputWidth(kIndent)))
        lines += std::string(kIndent, ' ') + line + "\n";
    return lines;
}

}  // namespace

std::string sheetOf(const FileName& file, const Findings& findings) {
    std::string text = fmt::format("{}: {}\n", visible(file.shown), counts(findings));
    for (const Finding& finding : findings.sorted()) {
        const std::string part = finding.part.empty() ? "" : "  " + visible(finding.part);
        text +=
            fmt::format("  {:<7}  {}{}\n", nameOf(finding.rule->severity), finding.rule->id, part);
        text += indented(finding.text);
        // Not wrapped, because it may be a command to be copied.
        if (finding.fix.empty()) continue;
        text += std::string(kIndent, ' ') + "fix: " + visible(finding.fix) + "\n";
    }
    return text;
}

std::string rulesSheet() {
    Table table(
        {{"Rule"}, {"Severity"}, {"Requirement", Table::Align::Left, Table::IfNarrow::GoesBelow}});
    for (const Rule& rule : kRules)
        table.add({rule.id, nameOf(rule.severity), rule.text});
    return table.text();
}

}  // namespace qzapp
