#include <fmt/format.h>
#include <CLI/Option.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <appserialization/KVPKGMetadataReader.hpp>
#include <fl/FileDescriptor.hpp>

#include <cstdint>
#include <memory>
#include <string>

#include "tools/qzapp/Arguments.hpp"
#include "tools/qzapp/Content.hpp"
#include "tools/qzapp/Display.hpp"
#include "tools/qzapp/Errors.hpp"
#include "tools/qzapp/Files.hpp"
#include "tools/qzapp/Forms.hpp"
#include "tools/qzapp/Output.hpp"
#include "tools/qzapp/PackageParts.hpp"
#include "tools/qzapp/Packaging.hpp"
#include "tools/qzapp/Progress.hpp"
#include "tools/qzapp/Transaction.hpp"
#include "tools/qzapp/Verbs.hpp"

namespace qzapp {
namespace {

using appserialization::AppMetadata;

struct EditOptions {
    std::string file;
    ContentOptions content;
    bool removeScreenshot = false;
};

// The library takes an empty text of these in the file for none, and writes the default instead.
bool hasDefaultInTheFile(Field field) {
    return field == Field::ScreenshotMode || field == Field::KVPKGVersion ||
           field == Field::MinimumSupportedKORVALRelease || field == Field::AppType;
}

// Whether a field that is not named must be handed to the library as it was read. It keeps a text
// that is absent from the record, and one that was read may be a default that is not in the file; an
// empty one is no default. It empties a list that is absent.
bool mustBePassedOn(Field field, const FieldValue& value) {
    return isList(field) || (hasDefaultInTheFile(field) && std::get<ustring>(value).empty());
}

// What to hand to the library so that the fields that are not named stay.
AppMetadata recordForEdit(const FileName& file, const FieldValues& named) {
    requireOneMetadataPart(file);
    const AppMetadata present = appserialization::KVPKGMetadataReader(file.native()).readMetadata();
    AppMetadata record = recordOf(named);
    for (const Field field : allFields()) {
        const FieldValue value = valueOf(present, field);
        if (!named.contains(field) && mustBePassedOn(field, value)) setField(record, field, value);
    }
    return record;
}

// One save, except that setting the code saves first.
void writeContent(const FileName& file, const Content& content) {
    about(file, [&] {
        const fl::filesystem::FileStamp before = openFile(file).stamp();
        const bool hasMetadata = !content.fields.empty();
        const AppMetadata record =
            hasMetadata ? recordForEdit(file, content.fields) : AppMetadata();
        appserialization::AppFileWriter writer(file.native(), false);
        if (openFile(file).stamp() != before) {
            throw Error(file.shown, "was changed by another program meanwhile; try again");
        }
        writeParts(writer, content);
        if (hasMetadata) writer.setAppMetadata(record);
        writer.close();
    });
}

// Returns whether anything changed.
bool apply(const FileName& file, const Content& content, bool withoutScreenshot) {
    const bool removed = withoutScreenshot && removeScreenshot(file);
    if (content.empty()) return removed;
    writeContent(file, content);
    return true;
}

// About: a save reads all that it keeps, and the old model is the most of that. Where there are several
// saves, the first keeps it.
std::uint64_t bytesToRead(const FileName& file, const Content& content, bool severalSaves) {
    const std::uint64_t old = sizeOf(file);
    return (severalSaves ? old : 0) + (content.model ? sizeOf(*content.model) : old);
}

// An edit that takes more than one save happens beside the file; one save is all or nothing by
// itself.
bool applyAtOnce(const FileName& file, const Content& content, bool withoutScreenshot) {
    const bool severalSaves = content.code || (withoutScreenshot && !content.empty());
    const Progress progress(bytesToRead(file, content, severalSaves));
    if (!severalSaves) return apply(file, content, withoutScreenshot);
    Transaction transaction(file, Transaction::Start::ContentOfTarget);
    const bool changed = apply(transaction.workingFile(), content, withoutScreenshot);
    transaction.commit();
    return changed;
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
    if (content.empty() && !options.removeScreenshot) {
        openApp(file);
        print(fmt::format(
            "{}: nothing to change; say what with an option, see \"qzapp edit --help\"\n",
            visible(file.shown)));
        return kDone;
    }
    const bool changed = applyAtOnce(file, content, options.removeScreenshot);
    const std::string name = visible(file.shown);
    print(changed ? "edited " + name + "\n" : name + ": has no screenshot; nothing changed\n");
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
    command.add_flag("--remove-screenshot", options->removeScreenshot, "Take the screenshot out")
        ->group("Content");
    command.footer(
        "What is not named stays as it is. An edit happens as a whole or not at all.\n"
        "One of code, model and metadata may be \"-\", standard input.\n" +
        fieldHelp() +
        "\n\n"
        "Example:\n"
        "  qzapp edit atlas.kvpkg --set Version=2.1 --clear Summary --code atlas.k");
    return [options] { return edit(*options); };
}

}  // namespace qzapp
