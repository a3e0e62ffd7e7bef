#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>

#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "app/Edit.hpp"
#include "app/Error.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/PackageParts.hpp"
#include "app/Packaging.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/ContentOptions.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

struct EditOptions {
    std::vector<std::string> files;
    ContentOptions content;
    bool removeScreenshot = false;
    bool dropSignature = false;

    bool removesParts() const { return removeScreenshot || dropSignature; }
    PartsToEdit removed() const {
        return {.screenshot = removeScreenshot, .signature = dropSignature};
    }
};

// Why a file stays as it is.
std::string whyUnchanged(const EditOptions& options, const Content& content) {
    std::string reason;
    if (options.removeScreenshot) reason = "has no screenshot";
    if (options.dropSignature)
        reason =
            options.removeScreenshot ? "has neither a screenshot nor a signature" : "is not signed";
    if (content.empty()) return reason;
    return reason + (reason.empty() ? "" : ", and ") + "is already as asked";
}

std::string withNotes(std::string text, const FileName& file,
                      const std::vector<std::string>& notes) {
    for (const std::string& note : notes)
        text += fmt::format("{}: {}\n", visible(file.shown), visible(note));
    return text;
}

// Returns the report on a file that was left as it is, or nothing after printing that of an edit.
std::string changeFile(const FileName& file, const Content& content, const EditOptions& options) {
    requireForm(file, Form::Packaged);
    const FileName opened = hold(file);
    const std::string name = visible(file.shown);
    if (content.empty() && !options.removesParts()) {
        openApp(opened);
        return fmt::format(
            "{}: nothing to change; say what with an option, see \"qzapp edit --help\"\n", name);
    }
    const EditPlan plan = planEdit(opened, content, options.removed());
    if (plan.isEmpty()) {
        const std::string why =
            fmt::format("{}: {}; nothing changed\n", name, whyUnchanged(options, content));
        return withNotes(why, file, plan.changes.notes);
    }
    const auto notes = applyEdit(file, opened, content, plan);
    printReport(file, withNotes(fmt::format("edited {}\n", name), file, notes));
    return {};
}

std::string editFile(const FileName& file, const Content& content, const EditOptions& options) {
    try {
        return changeFile(file, content, options);
    } catch (const SignedError& e) {
        throw Error(e.subject(), e.text() + "; add --drop-signature to remove the signatures");
    }
}

// The files, each once, even if several names lead to it.
std::vector<FileName> filesToEdit(const std::vector<std::string>& names) {
    std::vector<FileName> files;
    std::set<std::string> known;
    for (const std::string& name : names) {
        FileName file = fileArgument(name);
        std::error_code missing;
        const auto place = std::filesystem::canonical(name, missing);
        if (known.insert(missing ? name : place.string()).second) files.push_back(std::move(file));
    }
    return files;
}

// Goes on after a file that fails, and after a report that cannot be printed, even if the reader
// has gone.
int editAll(const std::vector<FileName>& files, const Content& content,
            const EditOptions& options) {
    int status = kDone;
    std::exception_ptr unreported;
    std::string unprinted;
    for (const FileName& file : files) {
        try {
            std::string untouched = editFile(file, content, options);
            if (!tryPrint(untouched)) unprinted = std::move(untouched);
        } catch (const ReportError&) {
            if (!unreported) unreported = std::current_exception();
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception& e) {
            report(e.what());
            status = kFailed;
        }
    }
    if (status != kDone) return status;
    if (unreported) std::rethrow_exception(unreported);
    print(unprinted);  // fails again, now for good
    return kDone;
}

int edit(const EditOptions& options) {
    const std::vector<FileName> files = filesToEdit(options.files);
    if (options.removeScreenshot && options.content.screenshot) {
        throw UsageError("--remove-screenshot",
                         "cannot be given with --screenshot, which replaces it");
    }
    const Content content = loadContent(options.content);
    for (const FileName& file : files)
        requireNoInput(file, content.sources);
    return editAll(files, content, options);
}

}  // namespace

Action declareEdit(CLI::App& command) {
    const auto options = std::make_shared<EditOptions>();
    command.add_option("FILE.kvpkg", options->files, "The packaged apps to change")
        ->required()
        ->type_name("");
    addContentOptions(command, options->content, false);
    command
        .add_option("--clear", options->content.clear,
                    "Make a text or a list empty; may be repeated")
        ->type_name("FIELD")
        ->group("Metadata")
        ->allow_extra_args(false);
    addListOptions(command, options->content);
    command.add_flag("--remove-screenshot", options->removeScreenshot, "Remove the screenshot")
        ->group("Content");
    command
        .add_flag("--drop-signature", options->dropSignature,
                  "Remove digital signatures, which no edit leaves valid")
        ->group("Content");
    command.footer(
        "What you do not name stays as it is. Each file is edited by itself, completely or not at\n"
        "all; one that fails does not stop the others. Folders are not taken.\n"
        "A file that is already as asked stays untouched. A default that readers assume, because\n"
        "the file lacks the field, is there for --metadata, but written by --set.\n"
        "--set replaces a whole list; --add and --remove change items of it.\n" +
        valueHelp() +
        "KORVALRelease is always the release of the host that saves; if you set another one, it\n"
        "is kept as legacy information.\n" +
        fieldHelp() +
        "\n\n"
        "Example:\n"
        "  qzapp edit atlas.kvpkg --set Version=2.1 --clear Summary --code atlas.k\n"
        "  qzapp edit apps/*.kvpkg --set Author=Ada --add RequiredProducts=Signals");
    return [options] { return edit(*options); };
}

}  // namespace qzapp
