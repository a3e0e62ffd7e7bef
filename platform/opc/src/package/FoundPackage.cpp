#include <opc/FoundPackage.hpp>

#include <fl/i18n.hpp>
#include <opc/PackageNames.hpp>

#include "platform/opc/src/Ascii.hpp"
#include "platform/opc/src/package/ContentTypes.hpp"
#include "platform/opc/src/package/PartOrder.hpp"
#include "platform/opc/src/package/RelationshipsPart.hpp"
#include "platform/opc/src/xml/XmlReader.hpp"
#include "platform/opc/src/zip/ZipError.hpp"

#include <algorithm>
#include <cstddef>
#include <functional>

namespace opc::model {

namespace {

using zip::ZipItem;

constexpr ustring_view kUnknownType = u"application/octet-stream";
constexpr ustring_view kImageTypes = u"image/";

FoundItem foundAs(const ZipItem& item) {
    FoundItem found{&item, item.displayName(), {}};
    found.name = names::partNameOf(item.name, &found.nameFault);
    if (found.name) found.shownName = fl::i18n::to_display(found.name->toString());
    return found;
}

void readToEnd(const zip::ZipArchive& archive, FoundItem& found) {
    try {
        found.hasStaleSlices = !archive.verify(*found.item);
    } catch (const zip::ItemError& error) {
        found.fault = error.fault();
    }
}

// The type of a part in a package whose content types cannot be read. An image has the type of the
// kind with its extension, whatever its name is.
ContentType assumedType(const PartName& name, std::span<const PartKind> kinds) {
    if (names::isRelationshipsName(name)) return names::relationshipsType();
    const auto kind = std::ranges::find(kinds, name, &PartKind::name);
    if (kind != kinds.end()) return kind->contentType;
    const auto image = std::ranges::find_if(kinds, [&](const PartKind& each) {
        return each.contentType.toString().starts_with(kImageTypes) &&
               ascii::equalIgnoringCase(each.name.getExtension(), name.getExtension());
    });
    return image != kinds.end() ? image->contentType : ContentType(kUnknownType);
}

// The names of items that a package itself mentions: its tables, the parts that have an Override or
// that a relationship leads to, and the usual names of its kinds of parts. If a damaged item has
// two names, they help to decide which one is right.
class KnownNames {
public:
    explicit KnownNames(std::span<const PartKind> kinds)
        : names_{std::string(names::kContentTypesItem),
                 names::itemNameOf(names::packageRelationships())} {
        for (const PartKind& kind : kinds)
            names_.insert(names::itemNameOf(kind.name));
    }

    void add(ContentTypes types) {
        for (const PartName& part : types.overrides())
            names_.insert(names::itemNameOf(part));
        types_ = std::move(types);
    }
    void add(const RelationshipsPart& relationships) {
        for (const Relationship& relationship : relationships.all()) {
            const auto name = PartName::fromTarget(relationship.getTargetURI());
            if (name) names_.insert(names::itemNameOf(*name));
        }
    }

    // Whether `name` is more likely than `other`: a name that the package mentions comes before one
    // that is only that of a part with a type, that before a part name, and that before any other.
    bool prefers(std::string_view name, std::string_view other) const {
        return rankOf(name) > rankOf(other);
    }

private:
    int rankOf(std::string_view name) const {
        if (names_.contains(name)) return 3;
        const auto part = names::partNameOf(name);
        if (!part) return 0;
        return types_.find(*part) != nullptr ? 2 : 1;
    }

    std::set<std::string, std::less<>> names_;  // of items
    ContentTypes types_;
};

const FoundItem* partOf(const FoundItem* item) {
    return item != nullptr && item->isPart() ? item : nullptr;
}

// The target of a relationship of `source`, whose relative form counts from the source's folder, as
// an absolute one.
URI resolved(const PartName& source, const URI& target) {
    const ustring& text = target.toString();
    if (text.starts_with(u'/')) return target;
    const ustring& name = source.toString();
    return URI(name.substr(0, name.rfind(u'/') + 1) + text);
}

}  // namespace

// Fills a FoundPackage. The steps depend on each other: names come before types, and types before
// relationships.
class FoundPackage::Reading {
public:
    Reading(FoundPackage& package, std::span<const PartKind> kinds)
        : package_(package), kinds_(kinds) {}

    void run() {
        for (const ZipItem& item : package_.archive->items()) {
            package_.items.push_back(foundAs(item));
            readToEnd(*package_.archive, package_.items.back());
        }
        settleNames();
        readTypes();
        readRelationships();
    }

private:
    static bool hasTwoNames(const FoundItem& found) { return !found.item->otherName.empty(); }

    std::optional<std::string> tableOf(const FoundItem* item) const {
        return item != nullptr ? package_.read(*item, xml::kMaxBytes) : std::nullopt;
    }

    // If directory and local header give an item different names, it gets the one by which the rest
    // of the package knows it.
    void settleNames() {
        if (std::ranges::none_of(package_.items, hasTwoNames)) return;
        const KnownNames known = knownNames();
        for (FoundItem& found : package_.items) {
            const ZipItem& item = *found.item;
            if (hasTwoNames(found) && known.prefers(item.otherName, item.name)) rename(found);
        }
    }

    KnownNames knownNames() const {
        KnownNames known(kinds_);
        std::vector<std::string> ignored;
        for (const FoundItem& found : package_.items) {
            const auto is = [&](bool (*isThat)(std::string_view)) {
                return isThat(found.item->name) ||
                       (hasTwoNames(found) && isThat(found.item->otherName));
            };
            const bool isTypes = is(names::isContentTypesItem);
            const bool isRelationships = is([](std::string_view name) {
                return names::partNameOf(name) == names::packageRelationships();
            });
            const auto document = isTypes || isRelationships ? tableOf(&found) : std::nullopt;
            if (document && isTypes) known.add(ContentTypes::parse(*document, {}, &ignored));
            if (document && isRelationships)
                known.add(RelationshipsPart::parse(*document, {}, &ignored));
        }
        return known;
    }

    // Gives an item its other name, unless some reader could take that for another item's.
    void rename(FoundItem& found) {
        const ZipItem& item = *found.item;
        const ZipItem* const other = package_.archive->findSimilar(item.otherName);
        if (other != nullptr && other != &item) return;
        const auto [renamed, isNew] = package_.renamed_.try_emplace(item.otherName, item);
        if (!isNew) return;
        renamed->second.name = item.otherName;
        std::string fault = std::move(found.fault);
        found = foundAs(renamed->second);
        found.fault = std::move(fault);
        found.otherName = item.displayName();
    }

    void readTypes() {
        for (const FoundItem& item : package_.items) {
            if (names::isContentTypesItem(item.item->name)) package_.typesItem = &item;
        }
        std::optional<ContentTypes> types;
        if (const auto document = tableOf(package_.typesItem)) {
            types = ContentTypes::parse(*document, {}, &package_.typeFaults);
            package_.typedNames = types->overrides();
        }
        package_.hasTypes = types.has_value();
        for (FoundItem& item : package_.items) {
            if (!item.name || &item == package_.typesItem) continue;
            if (!types) {
                item.type = assumedType(*item.name, kinds_);
            } else if (const ContentType* const type = types->find(*item.name)) {
                item.type = *type;
            }
            package_.named_.emplace(item.name->key(), &item);
        }
    }

    void readRelationships() {
        for (const FoundItem& item : package_.items) {
            if (item.name == names::packageRelationships()) package_.relationshipsItem = &item;
        }
        const auto document = tableOf(package_.relationshipsItem);
        if (!document) return assumeRelationships();
        package_.relationships =
            RelationshipsPart::parse(*document, {}, &package_.relationshipFaults).all();
    }

    void assumeRelationships() {
        std::vector<Relationship>& assumed = package_.relationships;
        for (const PartKind& kind : kinds_) {
            if (package_.find(kind.name) == nullptr) continue;
            const ustring id = u"rId" + fl::i18n::utf8_to_ustring(std::to_string(assumed.size()));
            assumed.emplace_back(id, kind.relationshipType, kind.name.getURI(),
                                 TargetMode::Internal);
        }
    }

    FoundPackage& package_;
    std::span<const PartKind> kinds_;
};

FoundPackage::FoundPackage(std::shared_ptr<const zip::ZipArchive> itsArchive,
                           std::span<const PartKind> kinds)
    : archive(std::move(itsArchive)) {
    Reading(*this, kinds).run();
}

FoundPackage::~FoundPackage() = default;

const FoundItem* FoundPackage::findItem(const PartName& name) const {
    const auto found = named_.find(name.key());
    return found == named_.end() ? nullptr : found->second;
}

const FoundItem* FoundPackage::targetItem(const Relationship& relationship) const {
    const auto name = relationship.getTargetName();
    return name ? findItem(*name) : nullptr;
}

const FoundItem* FoundPackage::find(const PartName& name) const {
    return partOf(findItem(name));
}

const FoundItem* FoundPackage::target(const Relationship& relationship) const {
    return partOf(targetItem(relationship));
}

std::vector<const Relationship*> FoundPackage::byType(ustring_view type) const {
    std::vector<const Relationship*> found;
    for (const Relationship& relationship : relationships) {
        if (relationship.getType() == type) found.push_back(&relationship);
    }
    return found;
}

std::optional<std::string> FoundPackage::read(const FoundItem& item, std::uint64_t limit) const {
    if (!item.fault.empty() || item.item->size > limit) return std::nullopt;
    // The size can be trusted: the item was read to its end.
    std::string content(item.item->size, '\0');
    const auto stream = archive->read(*item.item);
    std::size_t at = 0;
    while (const std::size_t got =
               stream->read(std::as_writable_bytes(std::span(content)).subspan(at)))
        at += got;
    return content;
}

std::vector<Relationship> FoundPackage::relationshipsFrom(const FoundItem& part) const {
    const FoundItem* const table = find(names::relationshipsOf(*part.name));
    const auto document = table ? read(*table, xml::kMaxBytes) : std::nullopt;
    if (!document) return {};
    std::vector<std::string> ignored;
    std::vector<Relationship> found;
    for (const Relationship& each : RelationshipsPart::parse(*document, {}, &ignored).all())
        found.emplace_back(each.getID(), each.getType(), resolved(*part.name, each.getTargetURI()),
                           each.getTargetMode());
    return found;
}

std::set<const FoundItem*> FoundPackage::reachable() const {
    std::set<const FoundItem*> reached;
    std::vector<const FoundItem*> open;
    const auto visit = [&](const std::vector<Relationship>& links) {
        for (const Relationship& link : links) {
            const FoundItem* const part = target(link);
            if (part != nullptr && reached.insert(part).second) open.push_back(part);
        }
    };
    visit(relationships);
    while (!open.empty()) {
        const FoundItem* const part = open.back();
        open.pop_back();
        visit(relationshipsFrom(*part));
    }
    return reached;
}

std::vector<std::pair<const FoundItem*, const FoundItem*>> FoundPackage::derivedNames() const {
    std::vector<std::pair<const FoundItem*, const FoundItem*>> derived;
    std::vector<const FoundItem*> folders;
    const std::map<std::string_view, const FoundItem*, PartOrder> inOrder(named_.begin(),
                                                                          named_.end());
    for (const auto& [key, part] : inOrder) {
        if (!part->isPart()) continue;
        while (!folders.empty() && !derives(key, folders.back()->name->key()))
            folders.pop_back();
        if (!folders.empty()) derived.emplace_back(part, folders.back());
        folders.push_back(part);
    }
    return derived;
}

}  // namespace opc::model
