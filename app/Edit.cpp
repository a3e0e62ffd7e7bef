#include "app/Edit.hpp"

#include <fmt/format.h>
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
#include <optional>
#include <system_error>
#include <variant>

#include "app/Error.hpp"
#include "app/FieldValues.hpp"
#include "app/InputFiles.hpp"
#include "app/PackageParts.hpp"
#include "app/Progress.hpp"
#include "app/Transaction.hpp"
#include "metadata/Fields.hpp"
#include "package/Layout.hpp"

namespace qzapp {
namespace {

using appserialization::AppMetadata;

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
    throw Error(file.shown, fl::filesystem::kChangedMeanwhile, std::errc::device_or_resource_busy);
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
std::uint64_t bytesToRead(const FileName& file, const Content& content, const EditPlan& plan) {
    const Changes& changes = plan.changes;
    const bool severalSaves = changes.parts.code || (plan.isRemoving && changes.any());
    const std::uint64_t old = sizeOf(file);
    return (severalSaves ? old : 0) + (changes.parts.model ? sizeOf(*content.model) : old);
}

}  // namespace

EditPlan planEdit(const FileName& opened, const Content& content, const PartsToEdit& removed) {
    EditPlan plan{changesTo(opened, content), removed, hasAny(opened, removed)};
    requireUnchanged(opened);
    return plan;
}

std::vector<std::string> applyEdit(const FileName& file, const FileName& opened,
                                   const Content& content, const EditPlan& plan) {
    const Progress progress(bytesToRead(file, content, plan));
    Transaction transaction(file, Transaction::Start::ContentOfTarget);
    requireStamp(file, transaction.startStamp(), opened.held->stamp);
    const FileName& working = transaction.workingFile();
    if (plan.isRemoving) removeParts(working, plan.removed);
    std::vector<std::string> notes = plan.changes.notes;
    if (plan.changes.any()) notes = writeContent(working, content, plan.changes);
    if (plan.changes.parts.model) requireModelArrived(working, content);
    transaction.commit();
    return notes;
}

}  // namespace qzapp
