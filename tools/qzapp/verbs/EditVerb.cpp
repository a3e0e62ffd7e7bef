#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <appserialization/AppMetadata.hpp>
#include <appserialization/KVPKGMetadataReader.hpp>
#include <appserialization/ustring.hpp>
#include <fl/FileDescriptor.hpp>
#include <fl/ReplacementFile.hpp>
#include <fl/i18n.hpp>
#include <opc/CoreProperties.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include "app/Changes.hpp"
#include "app/Error.hpp"
#include "app/FieldValues.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/PackageParts.hpp"
#include "app/Packaging.hpp"
#include "app/Transaction.hpp"
#include "app/VisibleText.hpp"
#include "metadata/Fields.hpp"
#include "package/Layout.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/ContentOptions.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/ProgressBar.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

using appserialization::AppMetadata;

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

// Whether the library, given a record without this text, replaces an empty text in the file by the
// default.
bool hasDefaultInTheFile(Field field) {
    const auto& access =
        appserialization::appmetadata::kFields.at(static_cast<std::size_t>(field)).access;
    const auto* const text = std::get_if<appserialization::appmetadata::TextAccess>(&access);
    if (text == nullptr) return false;
    return std::ranges::any_of(
        appserialization::layout::kTextElementsAsWritten,
        [&](const auto* row) { return row->set == text->set && *row->defaultText != u'\0'; });
}

// Whether a field that the user does not name must be handed to the library as it was read. Lists
// must, because the library empties a list that the record lacks. Texts must not: the library keeps
// a text that the record lacks, and what was read may be a default that the file does not hold. The
// exception is an empty text that the library would replace by its default.
bool mustBePassedOn(Field field, const FieldValue& value) {
    return isList(field) || (hasDefaultInTheFile(field) && std::get<ustring>(value).empty());
}

// The release to hand to the library, which keeps one other than the running host's as legacy
// information but drops that if the record lacks it. Nothing if the user clears it.
std::optional<ustring> releaseFor(const FieldValues& named, const PackageFacts& facts) {
    const auto found = named.find(Field::KORVALRelease);
    if (found == named.end()) return facts.legacyRelease;
    const ustring& release = std::get<ustring>(found->second);
    return release.empty() ? std::nullopt : std::optional(release);
}

void requireStamp(const FileName& file, const fl::filesystem::FileStamp& found,
                  const fl::filesystem::FileStamp& expected) {
    if (found == expected) return;
    throw Error(file.shown, fl::filesystem::kChangedMeanwhile, Error::Cause::Passing);
}

// What to hand to the library so that the fields that are not named stay.
AppMetadata recordForEdit(const FileName& file, FieldValues named, const PackageFacts& facts) {
    const AppMetadata present = appserialization::KVPKGMetadataReader(file.native()).readMetadata();
    const auto release = releaseFor(named, facts);
    named.erase(Field::KORVALRelease);
    AppMetadata record = recordOf(named);
    if (release) record.setKORVALRelease(*release);
    for (const Field field : allFields()) {
        const FieldValue value = valueOf(present, field);
        if (!named.contains(field) && mustBePassedOn(field, value)) setField(record, field, value);
    }
    return record;
}

// What the user may not expect.
std::vector<std::string> notesOn(const Changes& changes, const PackageFacts& facts) {
    std::vector<std::string> notes = changes.notes;
    if (changes.parts.screenshot && facts.otherThumbnail) {
        notes.push_back(
            fmt::format("{} is no longer the thumbnail, because the screenshot is; the "
                        "picture stays in the file",
                        *facts.otherThumbnail));
    }
    const auto release = changes.fields.find(Field::KORVALRelease);
    if (release == changes.fields.end()) return notes;
    const ustring current = opc::qzservices::CoreProperties::getCurrentKORVALRelease();
    const ustring& given = std::get<ustring>(release->second);
    if (given == current) return notes;
    notes.push_back(fmt::format("KORVALRelease is {}, the release of the host that saves",
                                fl::i18n::to_display(current)));
    if (!given.empty()) {
        notes.back() +=
            fmt::format("; {} is kept as legacy information", fl::i18n::to_display(given));
    }
    return notes;
}

// Takes one save, plus one before it for the code and one after it for a screenshot whose usual
// name is taken. Returns notes for the user.
std::vector<std::string> writeContent(const FileName& file, const Content& content,
                                      const Changes& changes) {
    return about(file, [&] {
        const fl::filesystem::FileStamp before = openFile(file).stamp();
        const PackageFacts facts = requireEditable(file, changes.parts);
        const AppMetadata record =
            changes.parts.metadata ? recordForEdit(file, changes.fields, facts) : AppMetadata();
        appserialization::AppFileWriter writer(file.native(), false);
        requireStamp(file, openFile(file).stamp(), before);
        // The writer would refuse a screenshot whose usual name something else has.
        PartsToEdit parts = changes.parts;
        parts.screenshot &= !facts.takenName;
        writeParts(file, writer, content, parts);
        if (parts.metadata) writer.setAppMetadata(record);
        writer.close();
        std::vector<std::string> notes = notesOn(changes, facts);
        if (facts.takenName) {
            notes.push_back(fmt::format("{} is something else and stays; the new screenshot is {}",
                                        *facts.takenName,
                                        setScreenshotBeside(file, *content.screenshot)));
        }
        return notes;
    });
}

// An estimate: a save reads all that it keeps, which is mostly the old model. The first of several
// saves always keeps that.
std::uint64_t bytesToRead(const FileName& file, const Content& content, const Changes& changes,
                          bool isRemoving) {
    const bool severalSaves = changes.parts.code || (isRemoving && changes.any());
    const std::uint64_t old = sizeOf(file);
    return (severalSaves ? old : 0) + (changes.parts.model ? sizeOf(*content.model) : old);
}

// What an edit does to a file, found out before anything is written.
struct Plan {
    Changes changes;
    bool isRemoving = false;

    bool isEmpty() const { return !changes.any() && !isRemoving; }
};

// Saves in a private folder, so that several saves count as one, the result is checked before it
// replaces the file, and a signal leaves nothing behind. `opened` is the file for which the plan was
// made. Returns notes for the user.
std::vector<std::string> applyAtOnce(const FileName& file, const FileName& opened,
                                     const Content& content, const EditOptions& options,
                                     const Plan& plan) {
    const ProgressBar progress(bytesToRead(file, content, plan.changes, plan.isRemoving));
    Transaction transaction(file, Transaction::Start::ContentOfTarget);
    requireStamp(file, transaction.startStamp(), opened.held->stamp);
    const FileName& working = transaction.workingFile();
    if (plan.isRemoving) removeParts(working, options.removed());
    std::vector<std::string> notes = plan.changes.notes;
    if (plan.changes.any()) notes = writeContent(working, content, plan.changes);
    if (plan.changes.parts.model) requireModelArrived(working, content);
    transaction.commit();
    return notes;
}

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
std::string editFile(const FileName& file, const Content& content, const EditOptions& options) {
    requireForm(file, Form::Packaged);
    const FileName opened = hold(file);
    const std::string name = visible(file.shown);
    if (content.empty() && !options.removesParts()) {
        openApp(opened);
        return fmt::format(
            "{}: nothing to change; say what with an option, see \"qzapp edit --help\"\n", name);
    }
    const Plan plan{changesTo(opened, content), hasAny(opened, options.removed())};
    requireUnchanged(opened);
    if (plan.isEmpty()) {
        const std::string why =
            fmt::format("{}: {}; nothing changed\n", name, whyUnchanged(options, content));
        return withNotes(why, file, plan.changes.notes);
    }
    const auto notes = applyAtOnce(file, opened, content, options, plan);
    printReport(file, withNotes(fmt::format("edited {}\n", name), file, notes));
    return {};
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

// Goes on after a file that fails, and after a report that cannot be printed, even if the reader has gone.
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
