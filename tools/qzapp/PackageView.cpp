#include "tools/qzapp/PackageView.hpp"

#include <fl/i18n.hpp>
#include <foundation/Immortal.hpp>
#include <opc/Exception.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>

#include <span>
#include <utility>

#include "tools/qzapp/AppLayout.hpp"
#include "tools/qzapp/Errors.hpp"
#include "tools/qzapp/Files.hpp"
#include "tools/qzapp/Forms.hpp"
#include "tools/qzapp/Progress.hpp"

namespace qzapp {
namespace {

using foundation::ustring;
using foundation::ustring_view;
using opc::model::ContentType;
using opc::model::PartName;
using opc::zip::ZipArchive;
using opc::zip::ZipItem;

constexpr std::size_t kReadBytes = std::size_t{256} << 10;
constexpr const char* kTypesItem = "[Content_Types].xml";

bool equalIgnoringCase(std::string_view a, std::string_view b) {
    const auto lower = [](std::string_view text) {
        return fl::i18n::to_lower(fl::i18n::utf8_to_ustring(text));
    };
    return lower(a) == lower(b);
}

// Runs `action` and tells how it failed, in the user's words.
template <class Action>
std::string refusalOf(const FileName& file, Action action) {
    try {
        about(file, action);
        return {};
    } catch (const Error& e) {
        return e.text();
    }
}

// The type of a part whose package does not say.
ContentType assumedType(const PartName& name) {
    if (isRelationshipsName(name)) return relationshipsType();
    for (const layout::AppPart& part : layout::kParts) {
        if (name == PartName(part.name)) return ContentType(part.contentType);
    }
    for (const auto& format : layout::app::kScreenshotFormats) {
        if (fl::i18n::to_lower(name.getExtension()) == format.extension)
            return format.contentType();
    }
    return ContentType(u"application/octet-stream");
}

ViewedItem viewOf(const ZipItem& item) {
    ViewedItem viewed{&item, item.displayName(), {}, {}, {}, {}};
    ustring name = u"/";
    for (const char c : item.name)
        name += char16_t(static_cast<unsigned char>(c));
    if (item.isDirectory() || !PartName::isValid(name, &viewed.nameFault)) return viewed;
    viewed.name.emplace(ustring_view(name));
    viewed.shownName = shownName(*viewed.name);
    return viewed;
}

}  // namespace

const ContentType& relationshipsType() {
    static const foundation::Immortal<ContentType> type(opc::names::kRelationshipsType);
    return *type;
}

const PartName& packageRelationships() {
    static const foundation::Immortal<PartName> name(opc::names::kRelationshipsPart);
    return *name;
}

bool isAppName(const FileName& file) {
    return fl::i18n::to_lower(file.native()).ends_with(kPackagedExtension);
}

bool isRelationshipsName(const PartName& name) {
    const std::string& key = name.key();
    const std::string folder = key.substr(0, key.rfind('/') + 1);
    return folder.ends_with("/_rels/") && key.ends_with(".rels");
}

std::string shownName(const PartName& name) {
    return fl::i18n::to_display(name.toString());
}

PackageView::PackageView(const FileName& itsFile) : file(itsFile) {
    zipRefusal = refusalOf(file, [&] { open(); });
    // To find what is left of a refused file takes reading it twice before.
    const Progress progress((archive ? 1 : 3) * sizeOf(file));
    if (!archive) salvage();
    viewItems();
    readTypes();
    readRelationships();
    openPackage();
}

void PackageView::open() {
    try {
        archive = ZipArchive::open(file.path);
    } catch (const opc::zip::ZipRefusal& refusal) {
        brokenRule = refusal.rule();
        throw;
    }
}

void PackageView::salvage() {
    about(file, [&] { archive = ZipArchive::salvage(file.path, lost); });
    // Called as those that were found are.
    for (opc::zip::LostItem& item : lost) {
        if (PartName::isValid(u"/" + fl::i18n::utf8_to_ustring(item.name)))
            item.name.insert(0, 1, '/');
    }
}

void PackageView::viewItems() {
    for (const ZipItem& item : archive->items())
        items.push_back(viewOf(item));
    for (ViewedItem& item : items) {
        item.fault = refusalOf(file, [&] {
            std::vector<std::byte> buffer(kReadBytes);
            const auto stream = archive->read(*item.item);
            while (stream->read(buffer) != 0) {
            }
        });
        // The item is named beside it.
        const std::string prefix = item.item->displayName() + ": ";
        if (item.fault.starts_with(prefix)) item.fault.erase(0, prefix.size());
    }
}

void PackageView::readTypes() {
    for (const ViewedItem& item : items) {
        if (equalIgnoringCase(item.item->name, kTypesItem)) typesItem = &item;
    }
    const auto document = typesItem ? read(*typesItem, kMaxXmlBytes) : std::nullopt;
    if (document) types.emplace(*document);
    for (ViewedItem& item : items) {
        if (!item.name || &item == typesItem) continue;
        item.type = types ? types->find(*item.name) : assumedType(*item.name);
        if (item.isPart()) parts_.emplace(item.name->key(), &item);
    }
}

void PackageView::readRelationships() {
    for (const ViewedItem& item : items) {
        if (item.name == packageRelationships()) relationshipsItem = &item;
    }
    const auto document = relationshipsItem ? read(*relationshipsItem, kMaxXmlBytes) : std::nullopt;
    if (!document) return assumeRelationships();
    opc::model::RelationshipsTable table(*document);
    relationships = std::move(table.relationships);
    relationshipFaults = std::move(table.faults);
}

void PackageView::assumeRelationships() {
    const auto assume = [&](ustring_view type, const PartName& name) {
        if (find(name) == nullptr) return;
        const ustring id = u"rId" + fl::i18n::utf8_to_ustring(std::to_string(relationships.size()));
        relationships.emplace_back(id, ustring(type), name.getURI(),
                                   opc::model::TargetMode::Internal);
    };
    for (const layout::AppPart& part : layout::kParts)
        assume(part.relationshipType, PartName(part.name));
    for (const auto& format : layout::app::kScreenshotFormats)
        assume(layout::app::kScreenshotRelationship, layout::screenshotName(format.extension));
}

void PackageView::openPackage() {
    if (!zipRefusal.empty()) return;
    packageRefusal = refusalOf(file, [&] {
        const opc::zippackage::ZipPhysicalPackage zip(file.path, true);
        opc::model::Package package(zip);
        package.open(opc::interfaces::OpenMode::Read);
    });
}

const ViewedItem* PackageView::find(const PartName& name) const {
    const auto found = parts_.find(name.key());
    return found == parts_.end() ? nullptr : found->second;
}

const ViewedItem* PackageView::find(ustring_view name) const {
    return find(PartName(name));
}

const ViewedItem* PackageView::target(const opc::model::Relationship& relationship) const {
    if (relationship.getTargetMode() == opc::model::TargetMode::External) return nullptr;
    try {
        return find(PartName(relationship.getTargetURI()));
    } catch (const opc::Exception&) {
        return nullptr;
    }
}

std::vector<const opc::model::Relationship*> PackageView::byType(ustring_view type) const {
    std::vector<const opc::model::Relationship*> found;
    for (const auto& relationship : relationships) {
        if (relationship.getType() == type) found.push_back(&relationship);
    }
    return found;
}

std::optional<std::string> PackageView::read(const ViewedItem& item, std::uint64_t limit) const {
    if (!item.fault.empty() || item.item->size > limit) return std::nullopt;
    std::string content(item.item->size, '\0');  // as long as it was when it was read to its end
    const auto stream = archive->read(*item.item);
    std::size_t at = 0;
    while (const std::size_t got =
               stream->read(std::as_writable_bytes(std::span(content)).subspan(at)))
        at += got;
    return content;
}

}  // namespace qzapp
