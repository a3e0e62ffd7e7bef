#include "tools/qzapp/verbs/Comparison.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "app/Error.hpp"
#include "app/FieldValues.hpp"
#include "app/MetadataJson.hpp"
#include "app/Sha256.hpp"

namespace qzapp {
namespace {

using nlohmann::ordered_json;

ordered_json metadataChanges(const AppPair& pair) {
    ordered_json changes = ordered_json::object();
    if (!pair.a.metadata || !pair.b.metadata) return changes;
    for (const Field field : allFields()) {
        if (field == Field::KVPKGVersion && !pair.sameForm()) continue;
        const FieldValue &a = pair.a.metadata->at(field), &b = pair.b.metadata->at(field);
        if (a != b) changes[nameOf(field)] = {{"a", valueToJson(a)}, {"b", valueToJson(b)}};
    }
    return changes;
}

ordered_json screenshotJson(const std::optional<ScreenshotFacts>& facts) {
    if (!facts) return nullptr;
    return {{"format", facts->format}, {"bytes", facts->size}, {"sha256", facts->sha256}};
}

ordered_json screenshotChange(const AppPair& pair) {
    ordered_json a = screenshotJson(pair.a.screenshot), b = screenshotJson(pair.b.screenshot);
    if (a == b) return nullptr;
    return {{"a", std::move(a)}, {"b", std::move(b)}};
}

ordered_json partJson(const PartFacts* part) {
    if (part == nullptr) return nullptr;
    return {{"contentType", part->contentType},
            {"size", part->size},
            {"sha256", part->error.empty() ? ordered_json(part->sha256) : nullptr}};
}

bool areSame(const PartFacts* a, const PartFacts* b) {
    return a != nullptr && b != nullptr && a->contentType == b->contentType &&
           a->sha256OfMeaning == b->sha256OfMeaning;
}

ordered_json partChanges(const AppPair& pair) {
    ordered_json changes = ordered_json::array();
    if (!pair.a.parts || !pair.b.parts) return changes;
    // An item may have the name that the bytes in front are given.
    using Key = std::pair<std::string, bool>;
    std::map<Key, std::pair<const PartFacts*, const PartFacts*>> parts;
    for (const PartFacts& part : *pair.a.parts)
        parts[{part.name, part.isLoose}].first = &part;
    for (const PartFacts& part : *pair.b.parts)
        parts[{part.name, part.isLoose}].second = &part;
    for (const auto& [key, found] : parts) {
        const auto [a, b] = found;
        if (areSame(a, b)) continue;
        changes.push_back({{"name", key.first}, {"a", partJson(a)}, {"b", partJson(b)}});
    }
    return changes;
}

ordered_json codeFacts(const std::string& code) {
    const auto lines = std::ranges::count(code, '\n') + (!code.empty() && code.back() != '\n');
    return {{"bytes", code.size()}, {"lines", lines}, {"sha256", sha256Hex(code)}};
}

ordered_json codeChange(const AppPair& pair, LineComparison& lines) {
    if (!pair.a.code || !pair.b.code || *pair.a.code == *pair.b.code) return nullptr;
    ordered_json change = {
        {"a", codeFacts(*pair.a.code)}, {"b", codeFacts(*pair.b.code)}, {"diff", nullptr}};
    if (isDiffable(change)) change["diff"] = lines.hunksOf(*pair.a.code, *pair.b.code);
    return change;
}

ordered_json notCompared(const AppPair& pair) {
    if (pair.sameForm()) return ordered_json::array();
    return ordered_json::array({kWithoutParts, kWithoutVersion});
}

void addErrors(ordered_json& errors, const FileName& file, const Snapshot& app) {
    const auto add = [&](const std::string& what, const std::string& text) {
        errors.push_back({{"file", file.shown}, {"what", what}, {"error", text}});
    };
    for (const Fault& fault : app.faults)
        add(fault.what, fault.text);
    if (!app.parts) return;
    for (const PartFacts& part : *app.parts) {
        if (!part.error.empty()) add(part.name, part.error);
    }
}

}  // namespace

bool isDiffable(const ordered_json& codeChange) {
    return std::ranges::all_of(std::array{"a", "b"}, [&](const char* side) {
        const ordered_json& facts = codeChange[side];
        return facts["bytes"].get<std::uint64_t>() <= kMostDiffBytes &&
               facts["lines"].get<std::uint64_t>() <= kMostDiffLines;
    });
}

LineComparison::LineComparison() : program_({{"diff", "-a", "-u", a_.name(), b_.name()}}) {}

ordered_json LineComparison::hunksOf(const std::string& a, const std::string& b) {
    a_.fill(codeLines(a));
    b_.fill(codeLines(b));
    const auto end = program_.run();
    if (!end) return nullptr;
    if (end->status != 0 && end->status != 1) {
        throw Error("diff", fmt::format("ended with status {}; install GNU diff", end->status));
    }
    // The first two lines are names and times.
    const std::size_t hunk = end->output.find("\n@@ ");
    return hunk == std::string::npos ? "" : end->output.substr(hunk + 1);
}

nlohmann::ordered_json compare(const AppPair& pair, LineComparison& lines) {
    ordered_json changes = {{"a", pair.fileA.shown},
                            {"b", pair.fileB.shown},
                            {"same", false},
                            {"metadata", metadataChanges(pair)},
                            {"screenshot", screenshotChange(pair)},
                            {"parts", partChanges(pair)},
                            {"code", codeChange(pair, lines)},
                            {"notCompared", notCompared(pair)},
                            {"errors", ordered_json::array()}};
    addErrors(changes["errors"], pair.fileA, pair.a);
    addErrors(changes["errors"], pair.fileB, pair.b);
    changes["same"] = changes["metadata"].empty() && changes["screenshot"].is_null() &&
                      changes["parts"].empty() && changes["code"].is_null() &&
                      changes["errors"].empty();
    return changes;
}

}  // namespace qzapp
