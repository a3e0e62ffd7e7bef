#include "tools/qzapp/check/FindingsSheet.hpp"

#include <fmt/format.h>
#include <foundation/Shown.hpp>

#include <array>
#include <cstddef>
#include <numeric>

#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/TerminalText.hpp"

namespace qzapp {
namespace {

constexpr std::size_t kIndent = 4;
constexpr std::size_t kSeverityWidth = 7;  // of "warning"
constexpr std::array kSeverities = {Severity::Error, Severity::Warning, Severity::Note};

Style styleOf(Severity severity) {
    switch (severity) {
        case Severity::Error:
            return Style::Error;
        case Severity::Warning:
            return Style::Warning;
        default:
            return Style::Note;
    }
}

// "2 errors"
std::string counted(std::size_t count, const char* what) {
    return fmt::format("{} {}{}", foundation::shownCount(count), what, count == 1 ? "" : "s");
}

std::string counts(const Findings& findings, Severity least) {
    std::string text;
    for (const Severity severity : kSeverities) {
        const std::size_t count = findings.count(severity);
        if (count == 0 || severity > least) continue;
        text += (text.empty() ? "" : ", ") +
                styled(counted(count, nameOf(severity)), styleOf(severity));
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

std::string sheetOf(const FileName& file, const Findings& findings, Severity least) {
    std::string text = fmt::format("{}: {}\n", styled(visible(file.shown), Style::Heading),
                                   counts(findings, least));
    for (const Finding& finding : findings.sorted(least)) {
        const Severity severity = finding.rule->severity;
        const std::string name = nameOf(severity);
        const std::string gap(kSeverityWidth - name.size(), ' ');
        const std::string part = finding.part.empty() ? "" : "  " + visible(finding.part);
        text += fmt::format("  {}{}  {}{}\n", styled(name, styleOf(severity)), gap,
                            finding.rule->id, part);
        text += indented(finding.text);
        // Not wrapped, because it may be a command to be copied.
        if (finding.fix.empty()) continue;
        text += std::string(kIndent, ' ') + styled("fix:", Style::Label) + " " +
                visible(finding.fix) + "\n";
    }
    return text;
}

FileKind kindOf(const Findings& findings) {
    const auto worst = findings.worst();
    if (!worst) return FileKind::Clean;
    if (*worst == Severity::Error) return FileKind::Wrong;
    return *worst == Severity::Warning ? FileKind::Warned : FileKind::Noted;
}

void CheckTotals::add(FileKind kind) {
    ++counts_.at(static_cast<std::size_t>(kind));
}

std::string CheckTotals::text() const {
    struct Entry {
        const char* words;
        Style style;
    };
    // In the order of FileKind.
    static constexpr std::array<Entry, 5> kEntries = {{{"without findings", Style::Plain},
                                                       {"with notes", Style::Note},
                                                       {"with warnings", Style::Warning},
                                                       {"with errors", Style::Error},
                                                       {"not read", Style::Error}}};
    std::string list;
    for (std::size_t i = 0; i < counts_.size(); ++i) {
        if (counts_[i] == 0) continue;
        const std::string entry =
            fmt::format("{} {}", foundation::shownCount(counts_[i]), kEntries[i].words);
        list += (list.empty() ? "" : ", ") + styled(entry, kEntries[i].style);
    }
    const std::size_t all = std::accumulate(counts_.begin(), counts_.end(), std::size_t{0});
    return fmt::format("{}: {}\n", counted(all, "file"), list);
}

std::string rulesSheet() {
    Table table(
        {{"Rule"}, {"Severity"}, {"Requirement", Table::Align::Left, Table::IfNarrow::GoesBelow}});
    for (const Rule& rule : kRules)
        table.add({rule.id, nameOf(rule.severity), rule.text});
    return table.text();
}

}  // namespace qzapp
