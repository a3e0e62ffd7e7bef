#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <fl/i18n.hpp>
#include <foundation/ustring.hpp>
#include <nlohmann/json.hpp>
#include <opc/ZipArchive.hpp>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/Error.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/MetadataJson.hpp"
#include "app/VisibleText.hpp"
#include "app/check/Checks.hpp"
#include "app/check/Findings.hpp"
#include "app/check/PackageView.hpp"
#include "app/check/Repair.hpp"
#include "tools/qzapp/check/FindingsSheet.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/ForEachApp.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

using nlohmann::ordered_json;

struct CheckOptions {
    std::vector<std::string> files;
    std::optional<std::string> repair;
    bool force = false;
    bool strict = false;
    bool json = false;
    bool rules = false;
};

bool isTextName(const FileName& file) {
    return fl::i18n::to_lower(file.native()).ends_with(kTextExtension);
}

void checkExtension(const FileName& file, const foundation::ustring& extension,
                    Findings& findings) {
    if (file.native().ends_with(extension)) return;
    findings.add("extension-case", "", "the extension must be in lower case", "rename the file");
}

void checkAnyPackage(const FileName& file, Findings& findings) {
    const PackageView package(file);
    checkContainer(package, findings);
    if (package.items.empty() && !package.zipRefusal.empty()) return;
    checkPackage(package, findings);
    if (isAppName(file)) checkApp(package, findings);
}

int statusOf(const Findings& findings, const CheckOptions& options) {
    const bool fails = findings.count(Severity::Error) > 0 ||
                       (options.strict && findings.count(Severity::Warning) > 0);
    return fails ? kFailed : kDone;
}

Answer checkOne(const FileName& file, const CheckOptions& options) {
    const Findings findings = checkFile(file);
    return {options.json ? jsonLine(toJson(file, findings)) : sheetOf(file, findings),
            statusOf(findings, options)};
}

ordered_json repairJson(const FileName& file, const FileName& out, const RepairReport& report,
                        const Findings& result) {
    ordered_json kept = ordered_json::array(), lost = ordered_json::array();
    for (const RepairReport::Kept& part : report.kept)
        kept.push_back({{"name", part.name}, {"size", part.size}});
    for (const opc::zip::LostItem& item : report.lost)
        lost.push_back({{"name", item.name}, {"reason", item.reason}});
    return {{"file", file.shown},      {"out", out.shown},        {"kept", std::move(kept)},
            {"lost", std::move(lost)}, {"mended", report.mended}, {"result", toJson(out, result)}};
}

std::string repairSheet(const FileName& out, const RepairReport& report, const Findings& result) {
    std::string text = fmt::format("wrote {}: {} kept, {} lost, {} mended\n", visible(out.shown),
                                   report.kept.size(), report.lost.size(), report.mended.size());
    for (const RepairReport::Kept& part : report.kept)
        text += fmt::format("  kept    {}, {}\n", visible(part.name), byteCount(part.size));
    for (const opc::zip::LostItem& item : report.lost)
        text += fmt::format("  lost    {}: {}\n", visible(item.name), visible(item.reason));
    for (const std::string& mended : report.mended)
        text += fmt::format("  mended  {}\n", visible(mended));
    return text + sheetOf(out, result);
}

// The copy of an app needs an app's extension, because readers go by that.
FileName outArgument(const FileName& file, const std::string& name) {
    return isAppName(file) ? newPackageArgument(name) : fileArgument(name);
}

int repair(const CheckOptions& options) {
    if (options.files.size() != 1)
        throw UsageError("--repair", "takes one FILE; repair them one by one");
    const FileName file = appArgument(options.files[0]);
    const FileName out = outArgument(file, *options.repair);
    requireFile(file);
    if (isTextName(file)) {
        throw Error(file.shown,
                    "is a text app, which you repair in an editor; \"qzapp check\" says where");
    }
    requireAbsent(out, options.force);
    requireNoInput(out, {file});
    // Once OUT is written, nothing is left to do that could fail but the printing.
    std::string text;
    int status = kDone;
    repairPackage(file, out, [&](const RepairReport& done, const FileName& copy) {
        const Findings result = checkFile(copy);
        text = options.json ? jsonLine(repairJson(file, out, done, result))
                            : repairSheet(out, done, result);
        status = statusOf(result, options);
    });
    printReport(out, text);
    return status;
}

int check(const CheckOptions& options) {
    if (options.rules) {
        print(options.json ? jsonLine(rulesJson()) : rulesSheet());
        return kDone;
    }
    if (options.force && !options.repair)
        throw UsageError("--force", "only goes with --repair; leave it out");
    if (options.files.empty())
        throw UsageError("check", "FILE is required; see \"qzapp check --help\"");
    if (options.repair) return repair(options);
    return forEachApp(options.files, [&](const FileName& file) { return checkOne(file, options); });
}

}  // namespace

Findings checkFile(const FileName& file) {
    requireFile(file);
    Findings findings;
    const bool isText = isTextName(file);
    if (isText || isAppName(file)) {
        checkExtension(file, isText ? kTextExtension : kPackagedExtension, findings);
    }
    if (isText) {
        checkText(file, findings);
    } else {
        checkAnyPackage(file, findings);
    }
    requireUnchanged(file);
    return findings;
}

Action declareCheck(CLI::App& command) {
    const auto options = std::make_shared<CheckOptions>();
    command
        .add_option("FILE", options->files,
                    "Packaged (.kvpkg) or text (.k) apps, any other packages, folders of\n"
                    "apps, or \"-\"")
        ->type_name("");
    command.add_flag("--strict", options->strict, "Let warnings count as failures, too");
    command.add_flag("--json", options->json, "Print one JSON object per file, each on one line");
    command
        .add_option("--repair", options->repair,
                    "Write to OUT, as a clean package, what can still be read of FILE;\n"
                    "once that is checked")
        ->type_name("OUT");
    command.add_flag("--force", options->force, "Replace OUT if it exists");
    command.add_flag("--rules", options->rules, "List the rules and do nothing else");
    command.footer(
        "Lists what is wrong with each file and how to fix it. Errors: readers refuse the file, "
        "or\n"
        "a part of it. Warnings: they read it, but perhaps not as meant. Notes: allowed, and good\n"
        "to know. The exit status is 1 if there are errors. FILE is read to its end and never\n"
        "changed. Standard input, \"-\", is taken for an app.\n\n"
        "Examples:\n"
        "  qzapp check --strict apps/*.kvpkg\n"
        "  qzapp check --repair atlas-repaired.kvpkg atlas.kvpkg");
    return [options] { return check(*options); };
}

}  // namespace qzapp
