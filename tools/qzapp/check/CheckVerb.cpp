#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <foundation/Shown.hpp>
#include <nlohmann/json.hpp>
#include <opc/ZipArchive.hpp>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "app/Error.hpp"
#include "app/FileName.hpp"
#include "app/InputFiles.hpp"
#include "app/MetadataJson.hpp"
#include "app/VisibleText.hpp"
#include "app/check/Checks.hpp"
#include "app/check/Findings.hpp"
#include "app/check/PackageView.hpp"
#include "app/check/Repair.hpp"
#include "tools/qzapp/check/CheckReport.hpp"
#include "tools/qzapp/check/FindingsSheet.hpp"
#include "tools/qzapp/cli/ForEachApp.hpp"
#include "tools/qzapp/cli/NewPackage.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

using foundation::shownCount;
using nlohmann::ordered_json;

struct CheckOptions {
    std::vector<std::string> files;
    std::optional<std::string> repair;
    bool force = false;
    bool strict = false;
    bool quiet = false;
    bool json = false;
    bool sarif = false;
    std::optional<std::string> format;
    bool rules = false;
};

CheckFormat formatOf(const CheckOptions& options) {
    if (options.json + options.sarif + options.format.has_value() > 1) {
        throw UsageError("--format",
                         "give one of --format, --json and --sarif; leave the others out");
    }
    if (options.format) return checkFormatNamed(*options.format);
    if (options.json) return CheckFormat::Json;
    return options.sarif ? CheckFormat::Sarif : CheckFormat::Text;
}

// For --repair and --rules, which do not print findings in a file.
bool wantsJson(const CheckOptions& options, const char* with) {
    const CheckFormat format = formatOf(options);
    if (format == CheckFormat::Text || format == CheckFormat::Json)
        return format == CheckFormat::Json;
    throw UsageError(with, "goes with the formats text and json; leave --format or --sarif out");
}

int statusOf(const Findings& findings, const CheckOptions& options) {
    const bool fails = findings.count(Severity::Error) > 0 ||
                       (options.strict && findings.count(Severity::Warning) > 0);
    return fails ? kFailed : kDone;
}

// The least severe findings that are printed.
Severity leastOf(const CheckOptions& options) {
    return options.quiet ? Severity::Warning : Severity::Note;
}

ordered_json repairJson(const FileName& file, const FileName& out, const RepairReport& report,
                        ordered_json result) {
    ordered_json kept = ordered_json::array(), lost = ordered_json::array();
    for (const RepairReport::Kept& part : report.kept)
        kept.push_back({{"name", part.name}, {"size", part.size}});
    for (const opc::zip::LostItem& item : report.lost)
        lost.push_back({{"name", item.name}, {"reason", item.reason}});
    return {{"file", file.shown},      {"out", out.shown},        {"kept", std::move(kept)},
            {"lost", std::move(lost)}, {"mended", report.mended}, {"result", std::move(result)}};
}

// The first lines of a list, and how many more there are.
constexpr std::size_t kMostListed = 10;

template <class Entry, class LineOf>
std::string listed(const std::vector<Entry>& entries, LineOf lineOf) {
    std::string text;
    for (const Entry& entry : std::span(entries).first(std::min(kMostListed, entries.size())))
        text += "  " + lineOf(entry) + "\n";
    if (entries.size() <= kMostListed) return text;
    return text + fmt::format("  … and {} more, which --json lists\n",
                              shownCount(entries.size() - kMostListed));
}

std::string repairSheet(const FileName& out, const RepairReport& report) {
    std::string text = fmt::format("wrote {}: {} kept, {} lost, {} mended\n", visible(out.shown),
                                   shownCount(report.kept.size()), shownCount(report.lost.size()),
                                   shownCount(report.mended.size()));
    text += listed(report.kept, [](const RepairReport::Kept& part) {
        return fmt::format("kept    {}, {}", visible(part.name), byteCount(part.size));
    });
    text += listed(report.lost, [](const opc::zip::LostItem& item) {
        return fmt::format("lost    {}: {}", visible(item.name), visible(item.reason));
    });
    return text + listed(report.mended,
                         [](const std::string& mended) { return "mended  " + visible(mended); });
}

int repair(const CheckOptions& options) {
    if (options.files.size() != 1)
        throw UsageError("--repair", "takes one FILE; repair them one by one");
    const bool asJson = wantsJson(options, "--repair");
    const FileName file = appArgument(options.files[0]);
    // The copy of an app needs an app's extension, because readers go by that.
    const NewPackage copied(*options.repair,
                            isAppName(file) ? NewPackage::Kind::App : NewPackage::Kind::Any);
    requireFile(file);
    if (isTextName(file)) {
        throw Error(file.shown,
                    "is a text app, which you repair in an editor; \"qzapp check\" says where");
    }
    copied.requireFree(options.force, {file});
    // Once OUT is written, nothing is left to do that could fail but the printing.
    std::string text;
    int status = kDone;
    copied.make([&](const FileName& out) {
        repairPackage(
            file, out, options.force, [&](const RepairReport& done, const FileName& copy) {
                const Findings result = checkFile(copy);
                const Severity least = leastOf(options);
                text = asJson ? jsonLine(repairJson(file, out, done, toJson(out, result, least)))
                              : repairSheet(out, done) + sheetOf(out, result, least);
                status = statusOf(result, options);
            });
    });
    copied.deliver(text, text);
    return status;
}

int checkEach(const CheckOptions& options) {
    const bool hasTotal = !options.quiet && maybeSeveral(options.files);
    const auto report = makeCheckReport(formatOf(options), {leastOf(options), hasTotal});
    AppVisitor visitor;
    visitor.ask = [&](const FileName& file) {
        const Findings findings = checkFile(file);
        return Answer{report->textOf(file, findings), statusOf(findings, options),
                      static_cast<int>(kindOf(findings))};
    };
    visitor.show = [&](const Answer& answer) { report->show(answer); };
    visitor.fail = [&](const std::string& file, const std::string& reason) {
        report->fail(file, reason);
    };
    const int status = forEachApp(options.files, visitor);
    report->end();
    return status;
}

int check(const CheckOptions& options) {
    if (options.rules) {
        print(wantsJson(options, "--rules") ? jsonLine(rulesJson()) : rulesSheet());
        return kDone;
    }
    if (options.force && !options.repair)
        throw UsageError("--force", "only goes with --repair; leave it out");
    if (options.files.empty())
        throw UsageError("check", "FILE is required; see \"qzapp check --help\"");
    if (options.repair) return repair(options);
    return checkEach(options);
}

}  // namespace

Action declareCheck(CLI::App& command) {
    const auto options = std::make_shared<CheckOptions>();
    command
        .add_option("FILE", options->files,
                    "Packaged (.kvpkg) or text (.k) apps, any other packages, folders of "
                    "apps, or \"-\"")
        ->type_name("");
    command.add_flag("--strict", options->strict, "Let warnings count as failures, too");
    command.add_flag("-q,--quiet", options->quiet,
                     "Print errors and warnings only: no notes, no total, and nothing about a file "
                     "that has neither");
    command.add_option("--format", options->format, "How to print findings: " + checkFormats())
        ->type_name("FORMAT");
    command.add_flag("--json", options->json,
                     "Print one JSON object per file, each on one line; short for --format json");
    command.add_flag("--sarif", options->sarif,
                     "Print a SARIF 2.1.0 log, for code scanning; short for --format sarif");
    command
        .add_option("--repair", options->repair,
                    "Write what can still be read of FILE to OUT, as a clean package, once that "
                    "is checked; \"-\" is standard output")
        ->type_name("OUT");
    command.add_flag("--force", options->force, "Replace OUT if it exists");
    command.add_flag("--rules", options->rules, "List the rules and do nothing else");
    command.footer(
        "Lists what is wrong with each file and how to fix it. Errors: readers refuse the file, "
        "or\n"
        "a part of it. Warnings: they read it, but perhaps not as meant. Notes: allowed, and good\n"
        "to know. The exit status is 1 if there are errors. FILE is read to its end and never\n"
        "changed. Several files end in a total. Standard input, \"-\", is taken for an app.\n\n"
        "Examples:\n"
        "  qzapp check --strict apps/*.kvpkg\n"
        "  qzapp check --sarif apps > apps.sarif\n"
        "  qzapp check --repair atlas-repaired.kvpkg atlas.kvpkg");
    return [options] { return check(*options); };
}

}  // namespace qzapp
