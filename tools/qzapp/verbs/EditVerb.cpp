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
#include <foundation/ustring.hpp>
#include <opc/CoreProperties.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

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
    std::string file;
    ContentOptions content;
    bool removeScreenshot = false;
    bool dropSignature = false;

    bool removesParts() const { return removeScreenshot || dropSignature; }
};

struct Outcome {
    bool isChanged = false;
    std::vector<std::string> notes;  // what the user may not expect
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

std::vector<std::string> notesOn(const Content& content, const PackageFacts& facts) {
    std::vector<std::string> notes;
    if (content.screenshot && facts.otherThumbnail) {
        notes.push_back(
            fmt::format("{} is no longer the thumbnail, because the screenshot is; the "
                        "picture stays in the file",
                        *facts.otherThumbnail));
    }
    const auto release = content.fields.find(Field::KORVALRelease);
    if (release == content.fields.end()) return notes;
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

PartsToEdit partsIn(const Content& content) {
    PartsToEdit parts{.code = content.code.has_value(),
                      .model = content.model.has_value(),
                      .metadata = !content.fields.empty(),
                      .screenshot = content.screenshot.has_value()};
    if (content.screenshot) parts.newFormat = content.screenshot->first;
    return parts;
}

Content withoutScreenshot(Content content) {
    content.screenshot.reset();
    return content;
}

// Takes one save, plus one before it for the code and one after it for a screenshot whose usual
// name is taken. Returns notes for the user.
std::vector<std::string> writeContent(const FileName& file, const Content& content) {
    return about(file, [&] {
        const fl::filesystem::FileStamp before = openFile(file).stamp();
        const bool hasMetadata = !content.fields.empty();
        const PackageFacts facts = requireEditable(file, partsIn(content));
        const AppMetadata record =
            hasMetadata ? recordForEdit(file, content.fields, facts) : AppMetadata();
        appserialization::AppFileWriter writer(file.native(), false);
        if (openFile(file).stamp() != before) {
            throw Error(file.shown, fl::filesystem::kChangedMeanwhile);
        }
        // The writer would refuse a screenshot whose usual name something else has.
        if (facts.takenName) {
            writeParts(file, writer, withoutScreenshot(content));
        } else {
            writeParts(file, writer, content);
        }
        if (hasMetadata) writer.setAppMetadata(record);
        writer.close();
        std::vector<std::string> notes = notesOn(content, facts);
        if (facts.takenName) {
            notes.push_back(fmt::format("{} is something else and stays; the new screenshot is {}",
                                        *facts.takenName,
                                        setScreenshotBeside(file, *content.screenshot)));
        }
        return notes;
    });
}

Outcome apply(const FileName& file, const Content& content, const EditOptions& options) {
    const bool isRemoved =
        options.removesParts() && removeParts(file, {.screenshot = options.removeScreenshot,
                                                     .signature = options.dropSignature});
    if (content.empty()) return {isRemoved, {}};
    return {true, writeContent(file, content)};
}

// An estimate: a save reads all that it keeps, which is mostly the old model. The first of several
// saves always keeps that.
std::uint64_t bytesToRead(const FileName& file, const Content& content, bool severalSaves) {
    const std::uint64_t old = sizeOf(file);
    return (severalSaves ? old : 0) + (content.model ? sizeOf(*content.model) : old);
}

// Saves in a private folder, so that several saves count as one, the result is checked before it
// replaces the file, and a signal leaves nothing behind.
Outcome applyAtOnce(const FileName& file, const Content& content, const EditOptions& options) {
    const bool severalSaves = content.code || (options.removesParts() && !content.empty());
    const ProgressBar progress(bytesToRead(file, content, severalSaves));
    Transaction transaction(file, Transaction::Start::ContentOfTarget);
    Outcome outcome = apply(transaction.workingFile(), content, options);
    if (!outcome.isChanged) return outcome;
    requireModelArrived(transaction.workingFile(), content);
    transaction.commit();
    return outcome;
}

std::string nothingToRemove(const EditOptions& options) {
    if (!options.dropSignature) return "has no screenshot";
    return options.removeScreenshot ? "has neither a screenshot nor a signature" : "is not signed";
}

int edit(const EditOptions& options) {
    const FileName file = fileArgument(options.file);
    if (options.removeScreenshot && options.content.screenshot) {
        throw UsageError("--remove-screenshot",
                         "cannot be given with --screenshot, which replaces it");
    }
    requireForm(file, Form::Packaged);
    requireFile(file);
    const Content content = loadContent(options.content);
    requireNoInput(file, content.sources);
    const std::string name = visible(file.shown);
    if (content.empty() && !options.removesParts()) {
        openApp(file);
        print(fmt::format(
            "{}: nothing to change; say what with an option, see \"qzapp edit --help\"\n", name));
        return kDone;
    }
    const Outcome outcome = applyAtOnce(file, content, options);
    if (!outcome.isChanged) {
        print(fmt::format("{}: {}; nothing changed\n", name, nothingToRemove(options)));
        return kDone;
    }
    std::string text = fmt::format("edited {}\n", name);
    for (const std::string& note : outcome.notes)
        text += fmt::format("{}: {}\n", name, visible(note));
    printReport(file, text);
    return kDone;
}

}  // namespace

Action declareEdit(CLI::App& command) {
    const auto options = std::make_shared<EditOptions>();
    command.add_option("FILE.kvpkg", options->file, "The packaged app to change")
        ->required()
        ->type_name("");
    addContentOptions(command, options->content, false);
    command
        .add_option("--clear", options->content.clear,
                    "Make a text or a list empty; may be repeated")
        ->type_name("FIELD")
        ->group("Metadata")
        ->allow_extra_args(false);
    command.add_flag("--remove-screenshot", options->removeScreenshot, "Remove the screenshot")
        ->group("Content");
    command
        .add_flag("--drop-signature", options->dropSignature,
                  "Remove digital signatures, which no edit leaves valid")
        ->group("Content");
    command.footer(
        "What you do not name stays as it is. An edit is made completely or not at all.\n"
        "KORVALRelease is always the release of the host that saves; if you set another one, it\n"
        "is kept as legacy information.\n"
        "One of code, model and metadata may be \"-\", standard input.\n" +
        fieldHelp() +
        "\n\n"
        "Example:\n"
        "  qzapp edit atlas.kvpkg --set Version=2.1 --clear Summary --code atlas.k");
    return [options] { return edit(*options); };
}

}  // namespace qzapp
