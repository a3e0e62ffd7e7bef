#include "tools/qzapp/check/FindingsSarif.hpp"

#include <fmt/format.h>
#include <fl/i18n.hpp>
#include <foundation/ustring.hpp>
#include <nlohmann/json.hpp>

#include <array>
#include <map>
#include <utility>

#include "app/MetadataJson.hpp"
#include "app/Sha256.hpp"
#include "app/VisibleText.hpp"

namespace qzapp {
namespace {

using nlohmann::ordered_json;

// Code scanning shows no more of a message.
constexpr std::size_t kMostMessage = 1000;  // UTF-16 code units
constexpr std::size_t kFingerprintDigits = 16;

constexpr std::string_view kPlainInUri =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~/";

// A relative name stays relative, to the folder in which the tool runs.
std::string uriOf(std::string_view file) {
    while (file.starts_with("./"))
        file.remove_prefix(2);
    std::string uri = file.starts_with('/') ? "file://" : "";
    for (const char c : file) {
        const bool isPlain = kPlainInUri.find(c) != std::string_view::npos;
        uri += isPlain ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return uri;
}

std::string cut(const std::string& text) {
    foundation::ustring units = fl::i18n::utf8_to_ustring(text);
    if (units.size() <= kMostMessage) return text;
    units.resize(kMostMessage - 1);
    const bool isHalf = (units.back() & 0xFC00) == 0xD800;  // of a pair of surrogates
    if (isHalf) units.pop_back();
    return fl::i18n::ustring_to_utf8(units) + "…";
}

// SARIF reads "{0}" as a placeholder, and "[text](target)" as a link.
std::string escaped(const std::string& text) {
    const bool mayLink = text.find("](") != std::string::npos;
    std::string result;
    for (const char c : text) {
        if (c == '{' || c == '}') result += c;
        if (mayLink && (c == '[' || c == ']')) result += '\\';
        result += c;
    }
    return result;
}

std::string messageOf(const Finding& finding) {
    const std::string part = finding.part.empty() ? "" : finding.part + ": ";
    const std::string fix = finding.fix.empty() ? "" : "\nFix: " + visible(finding.fix);
    return escaped(cut(visible(part + finding.text) + fix));
}

ordered_json locationOf(const std::string& file, const Finding& finding) {
    // Code scanning wants a line. The files have none, or a finding is about the whole.
    ordered_json location = {
        {"physicalLocation",
         {{"artifactLocation", {{"uri", uriOf(file)}}}, {"region", {{"startLine", 1}}}}}};
    if (!finding.part.empty()) {
        const ordered_json part = {{"fullyQualifiedName", finding.part}, {"kind", "resource"}};
        location["logicalLocations"] = ordered_json::array({part});
    }
    return location;
}

// What a finding is recognised by in the log of a later version of the file. Code scanning combines
// it with the file's name.
std::string fingerprintOf(const Finding& finding, std::map<std::string, std::size_t>& seen) {
    const std::string hash = sha256Hex(finding.rule->id + std::string(1, '\n') + finding.part)
                                 .substr(0, kFingerprintDigits);
    return fmt::format("{}:{}", hash, ++seen[hash]);
}

ordered_json ruleJson(const Rule& rule) {
    const char* consequence = "Files may break it; it is good to know.";
    const char* problem = "recommendation";
    if (rule.severity == Severity::Error) {
        consequence = "Readers refuse a file that breaks it, or a part of the file.";
        problem = "error";
    } else if (rule.severity == Severity::Warning) {
        consequence = "Readers read a file that breaks it, but perhaps not as it was meant.";
        problem = "warning";
    }
    const std::string help = fmt::format(
        "Requirement: {}. {} The message of each result says what was found and what to do.",
        rule.text, consequence);
    return {{"id", rule.id},
            {"shortDescription", {{"text", rule.text}}},
            {"fullDescription", {{"text", fmt::format("{}. {}", rule.text, consequence)}}},
            {"help", {{"text", help}}},
            {"defaultConfiguration", {{"level", nameOf(rule.severity)}}},
            {"properties", {{"problem.severity", problem}}}};
}

ordered_json toolJson() {
    ordered_json rules = ordered_json::array();
    for (const Rule& rule : kRules)
        rules.push_back(ruleJson(rule));
    return {{"driver",
             {{"name", "qzapp"}, {"semanticVersion", QZAPP_VERSION}, {"rules", std::move(rules)}}}};
}

std::string start() {
    return R"({"$schema":"https://json.schemastore.org/sarif-2.1.0.json","version":"2.1.0","runs":[{)"
           "\n\"columnKind\":\"unicodeCodePoints\",\n\"tool\":" +
           jsonLine(toolJson()) + ",\"results\":[\n";
}

}  // namespace

std::string sarifResults(const std::string& file, const std::vector<Finding>& findings) {
    std::string lines;
    std::map<std::string, std::size_t> seen;
    for (const Finding& finding : findings) {
        const ordered_json fingerprints = {
            {"primaryLocationLineHash", fingerprintOf(finding, seen)}};
        lines += jsonLine({{"ruleId", finding.rule->id},
                           {"ruleIndex", finding.rule - kRules.data()},
                           {"level", nameOf(finding.rule->severity)},
                           {"message", {{"text", messageOf(finding)}}},
                           {"locations", ordered_json::array({locationOf(file, finding)})},
                           {"partialFingerprints", fingerprints}});
    }
    return lines;
}

std::string SarifLog::add(std::string_view results) {
    std::string text;
    while (!results.empty()) {
        const std::string_view line = results.substr(0, results.find('\n') + 1);
        results.remove_prefix(line.size());
        if (count_ == kMostSarifResults) {
            ++left_;
            continue;
        }
        text.append(count_++ == 0 ? start() : ",").append(line);
    }
    return text;
}

std::string SarifLog::end() {
    return (count_ == 0 ? start() : "") + "]}]}\n";
}

}  // namespace qzapp
