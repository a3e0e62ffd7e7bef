#include "app/check/PackageView.hpp"

#include <fl/i18n.hpp>
#include <foundation/Immortal.hpp>
#include <opc/Exception.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>

#include <algorithm>
#include <set>
#include <span>
#include <utility>

#include "app/Errors.hpp"
#include "app/Files.hpp"
#include "app/Forms.hpp"
#include "app/Progress.hpp"
#include "app/check/AppLayout.hpp"
#include "app/check/KnownNames.hpp"

namespace qzapp {
namespace {

using foundation::ustring;
using foundation::ustring_view;
using opc::model::ContentType;
using opc::model::PartName;
using opc::zip::ZipArchive;
using opc::zip::ZipItem;

const ViewedItem* partOf(const ViewedItem* item) {
    return item != nullptr && item->isPart() ? item : nullptr;
}

constexpr std::size_t kReadBytes = std::size_t{256} << 10;

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
    ViewedItem viewed{&item, item.displayName(), {}, {}, {}, {}, {}};
    viewed.name = partNameOf(item.name, &viewed.nameFault);
    if (viewed.name) viewed.shownName = shownName(*viewed.name);
    return viewed;
}

bool isTypesName(std::string_view name) {
    return equalIgnoringCase(name, kTypesItem);
}

bool isPackageRelationshipsName(std::string_view name) {
    return partNameOf(name) == packageRelationships();
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

std::optional<PartName> partNameOf(std::string_view item, std::string* fault) {
    ustring name = u"/";
    for (const char c : item)
        name += char16_t(static_cast<unsigned char>(c));
    if (item.ends_with('/') || !PartName::isValid(name, fault)) return std::nullopt;
    return PartName(ustring_view(name));
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
    settleNames();
    readTypes();
    readRelationships();
    openPackage();
    isRepairable = isAppName(file) ? holdsApp() : holdsTables();
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

// Where directory and local header give an item two names, it has the one that the rest of the package
// knows it by.
void PackageView::settleNames() {
    const auto isOdd = [](const ViewedItem& item) { return !item.item->localName.empty(); };
    if (std::ranges::none_of(items, isOdd)) return;
    KnownNames known;
    for (const ViewedItem& item : items) {
        const auto is = [&](bool (*isThat)(std::string_view)) {
            return isThat(item.item->name) || (isOdd(item) && isThat(item.item->localName));
        };
        const bool isTypes = is(isTypesName), isRelationships = is(isPackageRelationshipsName);
        const auto document = isTypes || isRelationships ? read(item, kMaxXmlBytes) : std::nullopt;
        if (document && isTypes) known.add(opc::model::ContentTypesTable(*document));
        if (document && isRelationships) known.add(opc::model::RelationshipsTable(*document));
    }
    for (ViewedItem& viewed : items) {
        const ZipItem& item = *viewed.item;
        if (!isOdd(viewed) || !known.prefers(item.localName, item.name)) continue;
        const ZipItem* const other = archive->findSimilar(item.localName);
        if (other != nullptr && other != &item) continue;
        const auto [renamed, isNew] = renamed_.try_emplace(item.localName, item);
        if (!isNew) continue;
        renamed->second.name = item.localName;
        const std::string fault = viewed.fault;
        viewed = viewOf(renamed->second);
        viewed.fault = fault;
        viewed.directoryName = item.displayName();
    }
}

void PackageView::readTypes() {
    for (const ViewedItem& item : items) {
        if (isTypesName(item.item->name)) typesItem = &item;
    }
    const auto document = typesItem ? read(*typesItem, kMaxXmlBytes) : std::nullopt;
    if (document) types.emplace(*document);
    for (ViewedItem& item : items) {
        if (!item.name || &item == typesItem) continue;
        item.type = types ? types->find(*item.name) : assumedType(*item.name);
        named_.emplace(item.name->key(), &item);
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

bool PackageView::holdsApp() const {
    const ustring core(layout::kCoreProperties.relationshipType);
    std::set<PartName> names;
    for (const layout::AppPart& part : layout::kParts) {
        if (part.relationshipType != core) names.insert(PartName(part.name));
    }
    for (const auto& format : layout::app::kScreenshotFormats)
        names.insert(layout::screenshotName(format.extension));
    const auto isOfApp = [&](const opc::model::Relationship& link) {
        return layout::isAppRelationship(link.getType()) && link.getType() != core;
    };
    const auto isAppPart = [&](const ViewedItem& item) {
        return item.name && names.contains(*item.name);
    };
    const auto isLostPart = [&](const opc::zip::LostItem& item) {
        const auto name = PartName::fromName(fl::i18n::utf8_to_ustring(item.name));
        return name && names.contains(*name);
    };
    return std::ranges::any_of(relationships, isOfApp) || std::ranges::any_of(items, isAppPart) ||
           std::ranges::any_of(lost, isLostPart);
}

// Of the two that make a zip file a package.
bool PackageView::holdsTables() const {
    const auto isTable = [](const opc::zip::LostItem& item) {
        return isTypesName(item.name) || item.name == shownName(packageRelationships());
    };
    return typesItem != nullptr || relationshipsItem != nullptr ||
           std::ranges::any_of(lost, isTable);
}

const ViewedItem* PackageView::findItem(const PartName& name) const {
    const auto found = named_.find(name.key());
    return found == named_.end() ? nullptr : found->second;
}

const ViewedItem* PackageView::find(const PartName& name) const {
    return partOf(findItem(name));
}

const ViewedItem* PackageView::find(ustring_view name) const {
    return find(PartName(name));
}

const ViewedItem* PackageView::target(const opc::model::Relationship& relationship) const {
    return partOf(targetItem(relationship));
}

const ViewedItem* PackageView::targetItem(const opc::model::Relationship& relationship) const {
    if (relationship.getTargetMode() == opc::model::TargetMode::External) return nullptr;
    try {
        return findItem(PartName(relationship.getTargetURI()));
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
