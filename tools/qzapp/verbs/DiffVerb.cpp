#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>
#include <foundation/ustring.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "app/Forms.hpp"
#include "app/MetadataJson.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/cli/TerminalText.hpp"
#include "tools/qzapp/verbs/Comparison.hpp"
#include "tools/qzapp/verbs/Snapshot.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

using nlohmann::ordered_json;

// The exit statuses of diff(1), with kTrouble. If something could not be compared, the apps are
// neither the same nor different.
constexpr int kSame = 0;
constexpr int kDifferent = 1;

struct DiffOptions {
    std::string a, b;
    bool json = false;
};

std::string line(char sign, const std::string& text) {
    return fmt::format("{}   {}\n", sign, text);
}

std::string textLines(char sign, const std::string& name, const std::string& value) {
    std::string lines;
    std::string label = name + ":";
    for (const std::string& shown :
         visibleLines(fl::i18n::utf8_to_ustring(value), foundation::ustring::npos)) {
        lines += line(sign, label + (shown.empty() ? "" : " " + shown));
        label = "  |";
    }
    return lines;
}

// The items that `list` has more often than `other`.
std::vector<std::string> itemsOnlyIn(std::vector<std::string> list,
                                     std::vector<std::string> other) {
    std::sort(list.begin(), list.end());
    std::sort(other.begin(), other.end());
    std::vector<std::string> rest;
    std::set_difference(list.begin(), list.end(), other.begin(), other.end(),
                        std::back_inserter(rest));
    return rest;
}

std::string listLines(const std::string& name, const ordered_json& change) {
    std::string lines;
    for (const auto& [sign, own, other] : {std::tuple{'-', "a", "b"}, std::tuple{'+', "b", "a"}}) {
        for (const std::string& item : itemsOnlyIn(change[own], change[other]))
            lines += textLines(sign, name, item);
    }
    return lines.empty() ? line(' ', name + " has the same items in another order") : lines;
}

std::string metadataText(const ordered_json& changes) {
    std::string text;
    for (const auto& [name, change] : changes.items()) {
        text += change["a"].is_array()
                    ? listLines(name, change)
                    : textLines('-', name, change["a"]) + textLines('+', name, change["b"]);
    }
    return text.empty() ? "" : "metadata\n" + text;
}

std::string screenshotText(const ordered_json& change) {
    if (change.is_null()) return "";
    std::string text = "screenshot\n";
    for (const auto& [sign, side] : {std::pair{'-', "a"}, std::pair{'+', "b"}}) {
        const ordered_json& facts = change[side];
        if (facts.is_null()) continue;
        text +=
            line(sign, fmt::format("{}  {}  sha256:{}", visible(facts["format"].get<std::string>()),
                                   byteCount(facts["bytes"]), facts["sha256"].get<std::string>()));
    }
    return text;
}

std::string typeText(const std::string& contentType) {
    return contentType.empty() ? "without a content type" : visible(contentType);
}

std::string partsText(const ordered_json& changes) {
    std::string text;
    for (const ordered_json& change : changes) {
        for (const auto& [sign, side] : {std::pair{'-', "a"}, std::pair{'+', "b"}}) {
            const ordered_json& part = change[side];
            if (part.is_null()) continue;
            text +=
                line(sign, fmt::format("{}  {}  {}  {}", visible(change["name"].get<std::string>()),
                                       typeText(part["contentType"].get<std::string>()),
                                       byteCount(part["size"]),
                                       part["sha256"].is_null()
                                           ? "unreadable"
                                           : "sha256:" + part["sha256"].get<std::string>()));
        }
    }
    return text.empty() ? "" : "parts\n" + text;
}

std::string longCodeText(const ordered_json& change) {
    std::string text = "code\n";
    for (const auto& [sign, side] : {std::pair{'-', "a"}, std::pair{'+', "b"}}) {
        const ordered_json& facts = change[side];
        const auto lines = facts["lines"].get<std::uint64_t>();
        text += line(sign, fmt::format("{}, {} line{}  sha256:{}", byteCount(facts["bytes"]), lines,
                                       lines == 1 ? "" : "s", facts["sha256"].get<std::string>()));
    }
    return text +
           line(' ', fmt::format("differs; too long to show where (more than {} or {} lines)",
                                 foundation::shownMebibytes(kMostDiffBytes), kMostDiffLines));
}

std::string codeText(const ordered_json& change) {
    if (change.is_null()) return "";
    if (!isDiffable(change)) return longCodeText(change);
    if (change["diff"].is_null()) {
        return "code\n" +
               line(' ', "differs; install GNU diff (the package diffutils) to see where");
    }
    const auto hunks = change["diff"].get<std::string>();
    return "code\n" + (hunks.empty() ? line(' ', "differs in bytes that do not show") : hunks);
}

Style styleOf(char sign) {
    switch (sign) {
        case '-':
            return Style::Removed;
        case '+':
            return Style::Added;
        case '@':
            return Style::Place;
        default:
            return Style::Plain;
    }
}

// Lines only in A are red, lines only in B green.
std::string coloured(const std::string& text) {
    if (!outputIsColoured()) return text;
    std::string result;
    for (std::size_t start = 0, end = 0; start < text.size(); start = end + 1) {
        end = text.find('\n', start);
        result += styled(text.substr(start, end - start), styleOf(text[start])) + "\n";
    }
    return result;
}

std::string textOf(const AppPair& pair, const ordered_json& changes) {
    std::string text = metadataText(changes["metadata"]);
    // In two packages the screenshot is among the parts.
    if (!pair.bothPackaged()) text += screenshotText(changes["screenshot"]);
    text += partsText(changes["parts"]) + codeText(changes["code"]);
    if (text.empty()) return "";
    return fmt::format("--- {} ({} app)\n+++ {} ({} app)\n", visible(pair.fileA.shown),
                       nameOf(pair.a.form), visible(pair.fileB.shown), nameOf(pair.b.form)) +
           text;
}

std::string notes(const ordered_json& changes) {
    if (changes["notCompared"].empty()) return "";
    return fmt::format("note: not compared, because a text app has none: {}; {}\n", kWithoutParts,
                       kWithoutVersion);
}

int reportErrors(const ordered_json& changes) {
    for (const ordered_json& error : changes["errors"]) {
        report(fmt::format("{}: {}: {}", error["file"].get<std::string>(),
                           error["what"].get<std::string>(), error["error"].get<std::string>()));
    }
    if (!changes["errors"].empty()) return kTrouble;
    return changes["same"].get<bool>() ? kSame : kDifferent;
}

int diff(const DiffOptions& options) {
    requireOneStandardInput({options.a, options.b});
    LineComparison lines;
    AppPair pair{appArgument(options.a), appArgument(options.b), {}, {}};
    Cage().enter();
    pair.a = takeSnapshot(pair.fileA);
    pair.b = takeSnapshot(pair.fileB);
    const ordered_json changes = compare(pair, lines);
    print(options.json ? jsonLine(changes) : coloured(textOf(pair, changes) + notes(changes)));
    return reportErrors(changes);
}

}  // namespace

Action declareDiff(CLI::App& command) {
    const auto options = std::make_shared<DiffOptions>();
    command.add_option("A", options->a, "A packaged (.kvpkg) or text (.k) app, or \"-\"")
        ->required()
        ->type_name("");
    command.add_option("B", options->b, "Another, of either form")->required()->type_name("");
    command.add_flag("--json", options->json, "Print one JSON object");
    command.footer(
        "Compares the metadata, the code line by line (if longer than " +
        foundation::shownMebibytes(kMostDiffBytes) + " or " +
        foundation::shownCount(kMostDiffLines) +
        " lines, by\n"
        "SHA-256), and parts, other items and bytes in front of the zip file by content type, "
        "size\n"
        "and SHA-256. Ignores the time of the last save, the order of relationships, content "
        "types\n"
        "that apply to nothing, folder items, the comment of the zip file and zeros after it. "
        "Exit\n"
        "status: 0 the same, 1 different, 2 trouble.\n\n"
        "Example:\n"
        "  qzapp diff atlas-1.0.kvpkg atlas.kvpkg");
    return [options] { return diff(*options); };
}

}  // namespace qzapp
