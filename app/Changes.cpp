#include "app/Changes.hpp"

#include <appserialization/AppMetadata.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <appserialization/KVPKGMetadataReader.hpp>
#include <appserialization/ustring.hpp>
#include <fl/i18n.hpp>
#include <foundation/SaveWatch.hpp>
#include <foundation/ustring.hpp>
#include <opc/CorePropertiesManager.hpp>
#include <opc/ImageTypes.hpp>
#include <opc/Package.hpp>
#include <opc/Streams.hpp>
#include <opc/XercesHelper.hpp>
#include <quillcode/QuillCodeFileReader.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <set>
#include <span>
#include <utility>
#include <variant>

#include "app/AppContent.hpp"
#include "app/Error.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/ScreenshotFormats.hpp"
#include "app/WithPackage.hpp"
#include "metadata/Fields.hpp"
#include "package/Layout.hpp"

namespace qzapp {
namespace {

using appserialization::AppMetadata;
using opc::model::XercesHelper;
namespace layout = appserialization::layout;
namespace appmetadata = appserialization::appmetadata;

constexpr std::size_t kComparedBytes = std::size_t{256} << 10;

// The field that an element of the metadata part holds.
Field fieldOf(const layout::TextElementRow& element) {
    const auto row =
        std::ranges::find_if(appmetadata::kFields, [&](const appmetadata::FieldRow& each) {
            const auto* const text = std::get_if<appmetadata::TextAccess>(&each.access);
            return text != nullptr && text->set == element.set;
        });
    return row->field;
}

void addMissingElements(const opc::model::Package& package, std::set<Field>& missing) {
    const opc::model::XercesGuard xml;
    const auto parser = XercesHelper::createParser();
    const xercesc::DOMElement* root = nullptr;
    const auto links = package.getRelationshipsByType(layout::kMetadataRelationship);
    if (!links.empty()) {
        const auto stream = package.getTarget(links.front()).getInputStream();
        root = XercesHelper::getRoot(XercesHelper::readDocumentFromStream(
            parser, *stream, false, u"", layout::kMetadataNamespace));
    }
    for (const layout::TextElementRow* element : layout::kTextElementsAsRead) {
        if (root == nullptr || XercesHelper::getElement(root, element->name) == nullptr)
            missing.insert(fieldOf(*element));
    }
}

// The texts that the package does not hold and for which readers assume a default that is not
// empty, and perhaps some whose default is empty.
std::set<Field> missingTexts(const FileName& file) {
    return withPackage(file, [](opc::model::Package& package) {
        std::set<Field> missing;
        addMissingElements(package, missing);
        const opc::qzservices::CorePropertiesManager properties(package, 0);
        if (!properties.getCoreProperties().getVersion()) missing.insert(Field::Version);
        return missing;
    });
}

// Compares fields with those of an app.
class Metadata {
public:
    Metadata(const FileName& file, const PackageFacts& facts)
        : present_(about(
              file,
              [&] { return appserialization::KVPKGMetadataReader(file.native()).readMetadata(); })),
          missing_(missingTexts(file)),
          legacyRelease_(facts.legacyRelease) {}

    FieldValue valueOf(Field field) const { return qzapp::valueOf(present_, field); }

    // `isNamed` says that the user named the field.
    bool holds(Field field, const FieldValue& value, bool isNamed) const {
        if (field == Field::KORVALRelease) return isReleaseThere(std::get<ustring>(value), isNamed);
        const FieldValue present = valueOf(field);
        const bool isAssumed = missing_.contains(field) && value != FieldValue(ustring());
        return value == present && !(isNamed && isAssumed);
    }

    // Whether a record repeats the release that readers find, while the file keeps another one as
    // legacy information, which readers do not find.
    bool leavesLegacyRelease(const ustring& given, bool isNamed) const {
        return legacyRelease_ && !isNamed && given == presentRelease();
    }

private:
    ustring presentRelease() const { return std::get<ustring>(valueOf(Field::KORVALRelease)); }

    // Whether setting the release would leave what the file says about it. A release other than
    // that of the host that saves is kept as legacy information; an empty one removes that.
    bool isReleaseThere(const ustring& given, bool isNamed) const {
        if (leavesLegacyRelease(given, isNamed)) return true;
        if (legacyRelease_) return !given.empty() && given == *legacyRelease_;
        return given.empty() || given == presentRelease();
    }

    AppMetadata present_;
    std::set<Field> missing_;
    std::optional<ustring> legacyRelease_;
};

void compareMetadata(const FileName& file, const Content& content, const PackageFacts& facts,
                     Changes& changes) {
    const Metadata metadata(file, facts);
    FieldValues wanted = content.fields;
    for (const auto& [field, edit] : content.listEdits) {
        const auto given = wanted.try_emplace(field, metadata.valueOf(field)).first;
        EditedList list = edited(field, std::get<List>(std::move(given->second)), edit);
        given->second = std::move(list.items);
        std::ranges::move(list.notes, std::back_inserter(changes.notes));
    }
    for (auto& [field, value] : wanted) {
        if (metadata.holds(field, value, content.named.contains(field))) continue;
        changes.fields[field] = std::move(value);
    }
    changes.parts.metadata = !changes.fields.empty();
    // A save writes the release of the host that saves, so one that is to stay must be given again.
    const auto release = content.fields.find(Field::KORVALRelease);
    if (!changes.parts.metadata || release == content.fields.end()) return;
    const bool isNamed = content.named.contains(Field::KORVALRelease);
    if (!metadata.leavesLegacyRelease(std::get<ustring>(release->second), isNamed))
        changes.fields.insert(*release);
}

bool isModelThere(const FileName& file, const FileName& model) {
    const std::uint64_t size = model.held->stamp.size;
    // The system may not know the size of a file that is not on a disk.
    if (size != 0 && modelSize(file) != size) return false;
    const auto stored = openModel(file);
    std::vector<std::byte> buffer(kComparedBytes), other(kComparedBytes);
    for (std::uint64_t offset = 0;;) {
        foundation::SaveWatch::advance(0);  // a part of the save that it is done for
        const std::size_t count = stored->read(buffer);
        // One byte more than there should be shows that the file is longer.
        const auto rest = std::span(other).first(std::max<std::size_t>(count, 1));
        const std::size_t found = model.held->file.readAt(rest, offset);
        if (count == 0) return found == 0;
        if (!std::ranges::equal(std::span(buffer).first(count), std::span(other).first(found)))
            return false;
        offset += count;
    }
}

// The only part that the relationships of this type lead to.
std::optional<opc::model::Part> onlyTarget(const opc::model::Package& package,
                                           const ustring& relationshipType) {
    const auto links = package.getRelationshipsByType(relationshipType);
    if (links.size() != 1 || !package.hasTarget(links.front())) return std::nullopt;
    return package.getTarget(links.front());
}

// Whether the screenshot has its content type and is the thumbnail, as it is after an edit.
bool isAsWritten(const opc::model::Package& package) {
    const auto screenshot = onlyTarget(package, layout::kScreenshotRelationship);
    const auto thumbnail =
        onlyTarget(package, opc::model::PackageHelper::getThumbnailRelationshipType());
    if (!screenshot || !thumbnail || screenshot->getName() != thumbnail->getName()) return false;
    const opc::ImageType* const type = packagedType(screenshot->getName().getExtension());
    return type != nullptr && screenshot->getContentType() == type->contentType();
}

bool isScreenshotThere(const FileName& file, const appserialization::Screenshot& screenshot) {
    const appserialization::Screenshot present = readScreenshot(file, *openApp(file));
    return fl::i18n::to_lower(present.first) == fl::i18n::to_lower(screenshot.first) &&
           present.second == screenshot.second && withPackage(file, isAsWritten);
}

// Returns what `compare` returns. What the file holds but cannot be read is not there, and is to be
// replaced. Throws Error if the system fails.
template <class Compare>
bool isThere(const FileName& file, Compare compare) {
    try {
        return about(file, compare);
    } catch (const Error& e) {
        if (e.isPassing()) throw;
        return false;
    }
}

}  // namespace

Changes changesTo(const FileName& file, const Content& content) {
    PartsToEdit given = partsIn(content);
    given.signature = true;  // a signature does not matter if nothing changes
    const PackageFacts facts = requireEditable(file, given);
    Changes changes;
    if (content.code) {
        changes.parts.code = !isThere(file, [&] {
            return quillcode::QuillCodeFileReader(file.native()).getKORVALCode() == *content.code;
        });
    }
    if (content.model) {
        changes.parts.model = !isThere(file, [&] { return isModelThere(file, *content.model); });
        requireUnchanged(*content.model);
    }
    if (content.screenshot) {
        changes.parts.screenshot =
            !isThere(file, [&] { return isScreenshotThere(file, *content.screenshot); });
        if (changes.parts.screenshot) changes.parts.newFormat = given.newFormat;
    }
    if (content.hasMetadata()) compareMetadata(file, content, facts, changes);
    return changes;
}

}  // namespace qzapp
