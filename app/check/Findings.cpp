#include "app/check/Findings.hpp"

#include <fmt/format.h>
#include <foundation/Shown.hpp>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "app/VisibleText.hpp"

namespace qzapp {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t kMostOfARule = 10;

// How readers' messages end that advise what a fix says better.
constexpr std::array<std::string_view, 3> kAdvice = {"; get the file again from where it came from",
                                                     "; mend the XML or get the file again",
                                                     "; choose another file"};

constexpr std::string_view kPlainInShell =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./+@%-";

std::string singleQuoted(const std::string& name) {
    std::string word = "'";
    for (const char c : name)
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

// Spells a name that a terminal would act on: "$(printf 'a\033b')". The shell drops line ends at
// the end of what a command prints, so a name that ends in one becomes FILE.
std::string spelled(const std::string& name) {
    if (name.ends_with('\n')) return "FILE";
    std::string word = "\"$(printf '";
    for (const char c : name) {
        const bool isPlain = c != '%' && kPlainInShell.find(c) != std::string_view::npos;
        word += isPlain
                    ? std::string(1, c)
                    : fmt::format("\\{:03o}", static_cast<unsigned>(static_cast<unsigned char>(c)));
    }
    return word + "')\"";
}

}  // namespace

const char* nameOf(Severity severity) {
    switch (severity) {
        case Severity::Error:
            return "error";
        case Severity::Warning:
            return "warning";
        default:
            return "note";
    }
}

void Findings::add(RuleName rule, std::string part, std::string text, std::string fix) {
    if (++counts_[&*rule] > kMostOfARule) return;
    for (const std::string_view advice : kAdvice) {
        if (!fix.empty() && text.ends_with(advice)) text.resize(text.size() - advice.size());
    }
    findings_.push_back({&*rule, std::move(part), std::move(text), std::move(fix)});
}

std::vector<Finding> Findings::sorted(Severity least) const {
    std::vector<Finding> findings;
    std::map<const Rule*, std::size_t> listed;
    for (const Finding& finding : findings_) {
        if (finding.rule->severity > least) continue;
        findings.push_back(finding);
        const std::size_t count = counts_.at(finding.rule);
        if (++listed[finding.rule] < kMostOfARule || count == kMostOfARule) continue;
        const std::size_t rest = count - kMostOfARule;
        findings.push_back({finding.rule, "",
                            fmt::format("… and {} more", foundation::shownCount(rest)), "", rest});
    }
    std::ranges::stable_sort(findings, {},
                             [](const Finding& finding) { return finding.rule->severity; });
    return findings;
}

std::size_t Findings::count(Severity severity) const {
    std::size_t total = 0;
    for (const auto& [rule, count] : counts_)
        total += rule->severity == severity ? count : 0;
    return total;
}

std::optional<Severity> Findings::worst() const {
    std::optional<Severity> worst;
    for (const auto& [rule, count] : counts_)
        worst = std::min(worst.value_or(Severity::Note), rule->severity);
    return worst;
}

ordered_json toJson(const FileName& file, const Findings& findings, Severity least) {
    ordered_json list = ordered_json::array();
    for (const Finding& finding : findings.sorted(least)) {
        list.push_back({{"rule", finding.rule->id},
                        {"severity", nameOf(finding.rule->severity)},
                        {"part", finding.part},
                        {"text", finding.text},
                        {"fix", finding.fix},
                        {"count", finding.count}});
    }
    return {{"file", file.shown},
            {"errors", findings.count(Severity::Error)},
            {"warnings", findings.count(Severity::Warning)},
            {"notes", findings.count(Severity::Note)},
            {"findings", std::move(list)}};
}

ordered_json rulesJson() {
    ordered_json list = ordered_json::array();
    for (const Rule& rule : kRules) {
        list.push_back(
            {{"rule", rule.id}, {"severity", nameOf(rule.severity)}, {"text", rule.text}});
    }
    return {{"rules", std::move(list)}};
}

Finding unreadFinding(const std::string& reason) {
    return {&*RuleName("not-readable"), "", reason, ""};
}

std::string shellWord(const FileName& file) {
    if (file.isStream) return "FILE";
    // A word that begins with "-" would be taken as an option.
    std::string name = (file.shown.starts_with('-') ? "./" : "") + file.shown;
    if (name.find_first_not_of(kPlainInShell) == std::string::npos) return name;
    return visible(name) == name ? singleQuoted(name) : spelled(name);
}

}  // namespace qzapp
