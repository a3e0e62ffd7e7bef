#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <fl/FileDescriptor.hpp>
#include <fl/filesystem.hpp>
#include <foundation/ustring.hpp>
#include <nlohmann/json.hpp>
#include <opc/ZipArchive.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/Error.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/MetadataJson.hpp"
#include "app/Repack.hpp"
#include "app/Transaction.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/cli/Worker.hpp"
#include "tools/qzapp/git/LineMerge.hpp"
#include "tools/qzapp/git/Merge.hpp"
#include "tools/qzapp/git/MergePlan.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

using nlohmann::ordered_json;

// The exit statuses that git expects of a merge driver. It takes kTrouble, too, for a conflict.
constexpr int kClean = 0;
constexpr int kConflicts = 1;

// For git, which merges whatever a branch holds. Three apps with the largest code that can be read
// take two thirds of this.
constexpr std::uint64_t kMostMemory = std::uint64_t{2} << 30;

constexpr unsigned kLongestMark = 1000;
constexpr const char* kNoFile = "/dev/null";

struct MergeOptions {
    std::string base, ours, theirs, out, path;
    unsigned markerSize = 7;
    bool store = false;
    bool force = false;
    bool json = false;
};

bool endsIn(const std::string& name, Form form) {
    return name.ends_with(shownExtension(form));
}

// git hands over files whose names say nothing.
Form formToMerge(const MergeOptions& options) {
    for (const std::string& name : {options.path, options.ours}) {
        for (const Form form : {Form::Packaged, Form::Text}) {
            if (endsIn(name, form)) return form;
        }
    }
    throw UsageError(options.ours,
                     fmt::format("expected a name ending in \"{}\" or \"{}\"; rename "
                                 "the file, or give a name with --path",
                                 shownExtension(Form::Packaged), shownExtension(Form::Text)));
}

// Gives a held file a name with the extension of an app, and calls it what the user calls the app.
FileName asApp(FileName file, Form form, const std::string& shown) {
    const foundation::ustring extension(form == Form::Packaged ? kPackagedExtension
                                                               : kTextExtension);
    file.path = file.held->file.privateName(foundation::ustring(u"app") + extension);
    if (!shown.empty()) file.shown = shown;
    return file;
}

bool isFile(const FileName& out, const FileName& input) {
    const auto stamp = about(out, [&] { return fl::filesystem::findStamp(out.path); });
    return stamp && stamp->device == input.held->stamp.device &&
           stamp->inode == input.held->stamp.inode;
}

ordered_json jsonOf(const std::vector<Conflict>& conflicts) {
    ordered_json all = ordered_json::array();
    for (const Conflict& conflict : conflicts) {
        all.push_back({{"what", conflict.what},
                       {"name", conflict.name},
                       {"base", conflict.base},
                       {"ours", conflict.ours},
                       {"theirs", conflict.theirs}});
    }
    return all;
}

std::string shownValue(const ordered_json& value) {
    if (value.is_null()) return "none";
    if (value.is_object()) {
        return fmt::format("{}, sha256:{}", byteCount(value["size"].get<std::uint64_t>()),
                           value["sha256"].get<std::string>().substr(0, 12));
    }
    return value.dump();
}

// What is in conflict, and what became of it.
std::string headOf(const ordered_json& conflict, Form form) {
    const std::string what = conflict["what"], name = visible(conflict["name"].get<std::string>());
    if (what == "lines") {
        return fmt::format("{}: both changed the same lines; look for the marks \"<<<<<<<\"", name);
    }
    if (what == "text") {
        return fmt::format(
            "{}: both changed it, and it cannot be merged line by line; ours is kept", name);
    }
    return fmt::format("{} {}: {}", what, name,
                       form == Form::Packaged ? "ours is kept" : "is in these lines");
}

// `text` for each side, with its value; "" if the conflict has no values.
std::string valuesOf(const ordered_json& conflict, const char* text) {
    const std::string what = conflict["what"];
    if (what == "lines" || what == "text") return "";
    return fmt::format(fmt::runtime(text), visible(shownValue(conflict["ours"])),
                       visible(shownValue(conflict["theirs"])));
}

std::string sheetOf(const std::string& name, const ordered_json& conflicts, Form form) {
    if (conflicts.empty()) return fmt::format("merged {}\n", visible(name));
    std::string text = fmt::format(
        "merged {} with {}\n", visible(name),
        conflicts.size() == 1 ? "1 conflict" : fmt::format("{} conflicts", conflicts.size()));
    for (const ordered_json& conflict : conflicts)
        text += headOf(conflict, form) + valuesOf(conflict, "\n  ours    {}\n  theirs  {}") + "\n";
    return text;
}

// Puts the working file in the form in which git keeps it, unless something would be lost.
void store(Transaction& transaction) {
    const FileName working = hold(transaction.workingFile());
    about(transaction.workingFile(), [&] {
        auto packed = transaction.newFile("packed");
        try {
            repackPackage(working, opc::zip::Method::Stored, packed, working.shown,
                          RepackFor::History);
        } catch (const Error& e) {
            if (e.isPassing()) throw;
            return;
        }
        transaction.replaceWorkingFile("packed");
    });
}

ordered_json mergeInCage(const MergeOptions& options, const MergeInput& base, const FileName& ours,
                         const FileName& theirs, Transaction& transaction, LineMerge& lines) {
    Cage cage;
    cage.mayChange(transaction.folder());
    const std::string conflicts = inCage(cage, [&] {
        if (!options.path.empty()) limitMemory(kMostMemory);
        const auto found = mergeApps(base, ours, theirs, transaction, lines);
        for (const FileName& file : {ours, theirs})
            requireUnchanged(file);
        if (base) requireUnchanged(*base);
        if (options.store && formOf(ours) == Form::Packaged) store(transaction);
        return jsonOf(found).dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    });
    return ordered_json::parse(conflicts);
}

void requireSense(const MergeOptions& options, Form form) {
    requireOneStandardInput({options.base, options.ours, options.theirs});
    if (options.out == kStandardStream)
        throw UsageError("merge", "OUT is a file, since standard output gets the report");
    if (!options.path.empty()) {
        if (options.json) throw UsageError("--json", "cannot be given with --path; leave one out");
        return;
    }
    const Form other = form == Form::Packaged ? Form::Text : Form::Packaged;
    for (const std::string& name : {options.base, options.theirs}) {
        if (endsIn(name, other))
            throw UsageError(name, "is of another form than OURS; merge apps of the same form");
    }
    if (!endsIn(options.out, form))
        throw UsageError(options.out, fmt::format("expected a name ending in \"{}\", as OURS does",
                                                  shownExtension(form)));
}

// rerere, which replays how a person has resolved a conflict, looks for marks of git's length in
// the whole file. It would take a new model for the old one, because it cuts lines off at a zero
// byte. So in a package git must not see the marks.
unsigned markerSize(const MergeOptions& options, Form form) {
    const bool isHidden = form == Form::Packaged && !options.path.empty();
    return options.markerSize + (isHidden ? 1 : 0);
}

int merge(const MergeOptions& options) {
    const Form form = formToMerge(options);
    requireSense(options, form);
    LineMerge lines(markerSize(options, form));
    const FileName out = fileArgument(options.out);
    const std::string& name = options.path.empty() ? out.shown : options.path;
    // Before OURS is opened, which may be OUT: what others save from now on is not replaced.
    Transaction transaction({name, out.path}, Transaction::Start::Empty, shownExtension(form));
    const FileName heldOurs = contentArgument(options.ours),
                   heldTheirs = contentArgument(options.theirs);
    std::vector<FileName> inputs = {heldTheirs};
    const auto called = [&](const char* side) {
        return options.path.empty() ? "" : fmt::format("{} ({})", options.path, side);
    };
    MergeInput base;
    if (options.base != kNoFile) {
        const FileName held = contentArgument(options.base);
        inputs.push_back(held);
        if (held.held->stamp.size != 0) base = asApp(held, form, called("base"));
    }
    const FileName ours = asApp(heldOurs, form, called("ours"));
    const FileName theirs = asApp(heldTheirs, form, called("theirs"));
    if (!isFile(out, heldOurs)) requireAbsent(out, options.force);
    requireNoInput(out, inputs);

    const ordered_json conflicts = mergeInCage(options, base, ours, theirs, transaction, lines);
    transaction.commit();
    const int status = conflicts.empty() ? kClean : kConflicts;
    if (!options.path.empty()) {
        // Standard output is git's own.
        for (const ordered_json& conflict : conflicts)
            report(name + ": " + headOf(conflict, form) +
                   valuesOf(conflict, " (ours {}, theirs {})"));
        return status;
    }
    try {
        printReport(out, options.json ? jsonLine({{"out", out.shown}, {"conflicts", conflicts}})
                                      : sheetOf(name, conflicts, form));
    } catch (const ReportError& e) {
        report(e.what());
        return conflicts.empty() ? kSavedUnreported : kConflicts;
    }
    return status;
}

}  // namespace

Action declareMerge(CLI::App& command) {
    const auto options = std::make_shared<MergeOptions>();
    command
        .add_option("BASE", options->base,
                    "The app before both changes; there was none if it is empty or /dev/null")
        ->required()
        ->type_name("");
    command.add_option("OURS", options->ours, "The copy to which changes are added")
        ->required()
        ->type_name("");
    command.add_option("THEIRS", options->theirs, "The copy whose changes are added")
        ->required()
        ->type_name("");
    command.add_option("-o,--output", options->out, "The file to write; it may be OURS")
        ->required()
        ->type_name("OUT");
    command.add_flag("--store", options->store, "Pack OUT as \"qzapp repack --store\" does");
    command.add_flag("--force", options->force, "Replace OUT if it exists");
    command
        .add_option("--path", options->path,
                    "For git: what messages call the app. Its extension says what it is")
        ->type_name("NAME");
    command
        .add_option("--marker-size", options->markerSize,
                    "The length of the marks around lines in conflict (7)")
        ->type_name("N")
        ->check(numberUpTo(kLongestMark));
    command.add_flag("--json", options->json, "Print one JSON object");
    command.footer(
        "Adds to OURS what THEIRS changed since BASE: the metadata field by field (lists item by\n"
        "item), the code line by line, and the model, the screenshot and all other parts as a "
        "whole.\n"
        "Text apps are merged line by line. If both changed the same thing differently, it is "
        "named\n"
        "and ours is kept; code gets the usual marks. In trouble OUT stays as it was.\n"
        "Exit status: 0 merged, 1 merged with conflicts, 2 trouble, 3 merged without a conflict, "
        "but the\n"
        "report could not be printed.\n\n"
        "Example:\n"
        "  qzapp merge atlas-1.0.kvpkg atlas-mine.kvpkg atlas-yours.kvpkg -o atlas.kvpkg");
    return [options] { return merge(*options); };
}

}  // namespace qzapp
