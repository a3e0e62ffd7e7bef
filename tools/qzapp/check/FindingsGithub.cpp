#include "tools/qzapp/check/FindingsGithub.hpp"

#include <fmt/format.h>

#include <string_view>

#include "app/VisibleText.hpp"

namespace qzapp {
namespace {

// The runner takes a line for a command if it begins with "::", and undoes these escapes.
std::string escaped(std::string_view text, std::string_view characters) {
    std::string result;
    for (const char c : visible(text)) {
        const bool isEscaped = characters.find(c) != std::string_view::npos;
        result +=
            isEscaped ? fmt::format("%{:02X}", static_cast<unsigned char>(c)) : std::string(1, c);
    }
    return result;
}

std::string property(std::string_view text) {
    return escaped(text, "%\r\n:,");
}

// "./apps/a.kvpkg" is "apps/a.kvpkg" among the files of a repository.
std::string_view withoutDot(std::string_view name) {
    while (name.starts_with("./"))
        name.remove_prefix(2);
    return name;
}

const char* commandOf(Severity severity) {
    return severity == Severity::Note ? "notice" : nameOf(severity);
}

}  // namespace

std::string annotationOf(const std::string& file, const Finding& finding) {
    const std::string part = finding.part.empty() ? "" : finding.part + ": ";
    const std::string fix = finding.fix.empty() ? "" : " (fix: " + finding.fix + ")";
    return fmt::format("::{} file={},title={}::{}\n", commandOf(finding.rule->severity),
                       property(withoutDot(file)), property(finding.rule->id),
                       escaped(part + finding.text + fix, "%\r\n"));
}

std::string annotationsOf(const FileName& file, const Findings& findings, Severity least) {
    std::string text;
    for (const Finding& finding : findings.sorted(least))
        text += annotationOf(file.shown, finding);
    return text;
}

}  // namespace qzapp
