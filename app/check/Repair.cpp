#include "app/check/Repair.hpp"

#include <fmt/format.h>
#include <fl/i18n.hpp>
#include <foundation/ustring.hpp>
#include <opc/CoreProperties.hpp>
#include <opc/Exception.hpp>
#include <opc/FoundPackage.hpp>
#include <opc/HostProperties.hpp>
#include <opc/Limits.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>
#include <opc/PartKind.hpp>
#include <opc/PartName.hpp>
#include <opc/Relationship.hpp>
#include <opc/StandardProperties.hpp>
#include <opc/Streams.hpp>
#include <opc/XmlElements.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/Error.hpp"
#include "app/InputFiles.hpp"
#include "app/Progress.hpp"
#include "app/Transaction.hpp"
#include "app/VisibleText.hpp"
#include "app/check/AppLayout.hpp"
#include "app/check/PackageView.hpp"
#include "package/Layout.hpp"
#include "package/PartKinds.hpp"

namespace qzapp {
namespace {

using foundation::ustring;
using foundation::ustring_view;
using opc::model::ContentType;
using opc::model::FoundItem;
using opc::model::Package;
using opc::model::PackageHelper;
using opc::model::PartKind;
using opc::model::PartName;
using opc::model::Relationship;
using opc::model::TargetMode;
using opc::model::XmlElement;
using opc::qzservices::CoreProperties;
using opc::qzservices::HostProperties;
using opc::qzservices::StandardProperties;

constexpr const char16_t* kUnknownType = u"application/octet-stream";

std::string shown(const ustring& text) {
    return fl::i18n::to_display(text);
}

template <auto kSet>
void setText(CoreProperties& properties, const XmlElement& element) {
    (properties.*kSet)(fl::i18n::utf8_to_ustring(element.text));
}

void setReleaseInfo(CoreProperties& properties, const XmlElement& element) {
    const std::string* legacy = element.attribute("legacy");
    properties.setKORVALReleaseInfo(
        {fl::i18n::utf8_to_ustring(element.text), legacy != nullptr && *legacy == "true"});
}

// A property that is kept when the part that holds it breaks its rules and is written anew.
struct Property {
    std::string_view element;
    void (*set)(CoreProperties& properties, const XmlElement& element);
    const char* called;  // what messages call it
};
constexpr Property kStandardProperties[] = {
    {"title", setText<&CoreProperties::setTitle>, "name"},
    {"description", setText<&CoreProperties::setDescription>, "summary"},
    {"creator", setText<&CoreProperties::setCreatedBy>, "author"},
    {"version", setText<&CoreProperties::setVersion>, "version"},
    {"contentType", setText<&CoreProperties::setContentType>, "content type"},
};
constexpr Property kHostProperties[] = {
    {"contentTypeFriendlyName", setText<&CoreProperties::setContentTypeFriendlyName>,
     "friendly name"},
    {"release", setText<&CoreProperties::setKORVALRelease>, "release"},
    {"releaseInfo", setReleaseInfo, "release info"},
};

// A part whose content is a list of independent properties, so that some can be kept without the
// others.
struct PropertiesPart {
    layout::PartKindRow part;
    const char* called;
    std::span<const Property> properties;
    void (*parse)(std::string_view document, const std::string& where, CoreProperties& properties);
    std::string (*toXml)(const CoreProperties& properties);

    // Whether readers accept this content.
    bool isSound(const std::string& document) const {
        try {
            CoreProperties ignored;
            parse(document, "", ignored);
            return true;
        } catch (const opc::Exception& e) {
            if (causeOf(e) == Error::Cause::Passing) throw;
            return false;
        }
    }
};
constexpr PropertiesPart kPropertiesParts[] = {
    {layout::kCoreProperties, "the core properties", kStandardProperties, StandardProperties::parse,
     StandardProperties::toXml},
    {layout::kHostProperties, "the host properties", kHostProperties, HostProperties::parse,
     HostProperties::toXml},
};

// The relationship type that leads to parts such as this one, which its name or else its content
// type identifies; empty if it is not a part of an app.
ustring kindOf(const FoundItem& item) {
    const auto isNamed = [&](const layout::PartKindRow& part) {
        return *item.name == PartName(part.name);
    };
    const auto isTyped = [&](const layout::PartKindRow& part) {
        return item.type && *item.type == ContentType(part.contentType);
    };
    const auto& all = layout::app::kParts;
    auto found = std::ranges::find_if(all, isNamed);
    if (found == all.end()) found = std::ranges::find_if(all, isTyped);
    if (found != all.end()) return ustring(found->relationshipType);
    const auto isImage = [&](const auto& format) {
        return *item.name == layout::screenshotName(format.extension) ||
               (item.type && *item.type == format.contentType());
    };
    const bool isScreenshot = std::ranges::any_of(layout::app::kScreenshotFormats, isImage);
    return isScreenshot ? layout::app::kScreenshotRelationship : ustring();
}

// Builds the new package `to` from what is whole in `from`: first the parts, then their
// relationships, then what an app needs besides. Reports each step.
class Repair {
public:
    // `file` is the new package's, for messages.
    Repair(const PackageView& from, Package& to, const FileName& file, RepairReport& report)
        : from_(from),
          to_(to),
          file_(file),
          report_(report),
          xmlParts_(xmlParts()),
          thumbnails_(thumbnails()),
          linkedParts_(linkedParts()) {}

    void run() {
        report_.lost = from_.lost;
        if (from_.archive->isConverted()) {
            mend(
                "took out the carriage returns that were put in front of line feeds when the file "
                "was transferred or saved as a text");
        }
        for (const FoundItem& item : from_.items)
            takeItem(item);
        for (const Relationship& relationship : from_.relationships)
            takeRelationship(relationship);
        reportTables();
        reportRest();
        if (isAppName(from_.file)) {
            settleSharedParts();
            linkAppParts();
            loseUnusedScreenshots();
        }
        mendProperties();
    }

private:
    void lose(const std::string& name, const std::string& reason) {
        report_.lost.push_back({name, reason});
    }
    void mend(std::string text) { report_.mended.push_back(std::move(text)); }

    void takeItem(const FoundItem& item) {
        if (&item == from_.typesItem || &item == from_.relationshipsItem) return;
        if (item.item->isDirectory()) return mend("left out the folder " + item.shownName);
        if (!item.fault.empty()) return lose(item.shownName, item.fault);
        if (!item.name) return lose(item.shownName, "its name " + item.nameFault);
        if (const auto fault = xmlFault(item)) return lose(item.shownName, *fault);
        const ContentType type = typeFor(item);
        try {
            about(file_, [&] {
                to_.createPart(*item.name, type, opc::model::StandardPartInfo(1, item.item->size));
            });
        } catch (const Error& e) {
            if (e.isPassing()) throw;
            return lose(item.shownName, e.text());
        }
        const auto content = from_.archive->read(*item.item);
        const auto stream = to_.getPart(*item.name).getOutputStream();
        opc::StreamHelper::copyStreamToStream(*content, *stream);
        report_.kept.push_back({item.shownName, item.item->size});
        reportItem(item, type);
    }

    void reportItem(const FoundItem& item, const ContentType& type) {
        if (!item.otherName.empty()) {
            mend(fmt::format(
                "used the name {}, because the package refers to it; the file calls the "
                "item \"{}\", too",
                item.shownName, item.otherName));
        }
        if (!item.type) {
            mend(fmt::format("gave {} the content type {}, because it had none", item.shownName,
                             shown(type.toString())));
        } else if (!(*item.type == type)) {
            mend(fmt::format("gave {} the content type of its kind", item.shownName));
        }
    }

    // The parts that readers of apps parse as XML.
    std::set<const FoundItem*> xmlParts() const {
        std::set<const FoundItem*> parts;
        for (const layout::PartKindRow& part : layout::app::kParts) {
            if (!layout::isXml(part)) continue;
            if (isAppName(from_.file)) parts.insert(from_.findItem(PartName(part.name)));
            for (const Relationship* link : from_.byType(part.relationshipType)) {
                if (!isOfAnotherKind(*link)) parts.insert(from_.targetItem(*link));
            }
        }
        return parts;
    }

    std::set<const FoundItem*> thumbnails() const {
        std::set<const FoundItem*> parts;
        for (const Relationship* link :
             from_.byType(PackageHelper::getThumbnailRelationshipType())) {
            parts.insert(from_.targetItem(*link));
        }
        parts.erase(nullptr);  // from dangling relationships
        return parts;
    }

    // The kind of part that a relationship says an item is. If there are several, the first in
    // app::kParts.
    std::map<const FoundItem*, const layout::PartKindRow*> linkedParts() const {
        std::map<const FoundItem*, const layout::PartKindRow*> parts;
        for (const layout::PartKindRow& part : layout::app::kParts) {
            for (const Relationship* link : from_.byType(part.relationshipType))
                parts.try_emplace(from_.targetItem(*link), &part);
        }
        return parts;
    }

    // Why readers fail on such a part. Without the part they would use defaults, so the package is
    // better off without it.
    std::optional<std::string> xmlFault(const FoundItem& item) const {
        if (!xmlParts_.contains(&item)) return std::nullopt;
        try {
            opc::model::readXmlElements(textOf(item), "");
            return std::nullopt;
        } catch (const opc::Exception& e) {
            if (causeOf(e) == Error::Cause::Passing) throw;
            return "its XML cannot be read" + std::string(e.what());
        }
    }

    // The content type of an item in the new package: that of its kind, if the usual name says
    // which that is or it is the only one of the package that a relationship of the kind leads to.
    ContentType typeFor(const FoundItem& item) const {
        if (opc::names::isRelationshipsName(*item.name)) return opc::names::relationshipsType();
        for (const layout::PartKindRow& part : layout::app::kParts) {
            if (*item.name == PartName(part.name)) return ContentType(part.contentType);
        }
        const auto linked = linkedParts_.find(&item);
        const layout::PartKindRow* const kind =
            linked == linkedParts_.end() ? nullptr : linked->second;
        const bool isOnlyOne = kind && from_.byType(kind->relationshipType).size() == 1;
        if (isOnlyOne && kindOf(item).empty()) return ContentType(kind->contentType);
        if (item.type) return *item.type;
        for (const auto& format : layout::app::kScreenshotFormats) {
            if (*item.name == layout::screenshotName(format.extension)) return format.contentType();
        }
        return ContentType(kind ? kind->contentType : ustring_view(kUnknownType));
    }

    void takeRelationship(const Relationship& link) {
        const bool isExternal = link.getTargetMode() == TargetMode::External;
        const ustring& target = link.getTargetURI().toString();
        if (layout::isAppRelationship(link.getType())) {
            if (const auto fault = appLinkFault(link)) return loseLink(link, *fault);
        } else if (!isExternal && !to_.hasTarget(link)) {
            return loseLink(link, leadsNowhere(target));
        }
        if (isExternal) {
            to_.createExternalRelationship(link.getType(), link.getTargetURI(), link.getID());
        } else {
            to_.createInternalRelationship(link.getType(), link.getTargetURI(), link.getID());
        }
    }

    void loseLink(const Relationship& link, const std::string& reason) {
        lose(fmt::format("relationship \"{}\"", shown(link.getID())), reason);
    }

    static std::string leadsNowhere(const ustring& target) {
        return fmt::format("it leads to \"{}\", which is not in the package", shown(target));
    }

    // Why this relationship to a part of an app is not taken over. An app has one of each type, and
    // readers ignore the part if there are several.
    std::optional<std::string> appLinkFault(const Relationship& link) {
        const std::string target = shown(link.getTargetURI().toString());
        if (link.getTargetMode() == TargetMode::External) {
            return fmt::format("it leads outside the package, to \"{}\"", target);
        }
        if (!to_.hasTarget(link)) return leadsNowhere(link.getTargetURI().toString());
        if (isOfAnotherKind(link)) {
            return fmt::format("it leads to {}, which is a part of another kind", target);
        }
        const Relationship& meant = meantLink(link.getType());
        if (&meant == &link) return std::nullopt;
        return fmt::format("it led to {}; of several to such a part, \"{}\" to {} is kept", target,
                           shown(meant.getID()), shown(meant.getTargetURI().toString()));
    }

    bool isOfAnotherKind(const Relationship& link) const {
        const FoundItem* const target = from_.targetItem(link);
        if (target == nullptr) return false;
        const ustring kind = kindOf(*target);
        return !kind.empty() && kind != link.getType();
    }

    // Of the relationships of one type that lead to a part of that kind, the one with the largest
    // weight. There must be at least one.
    const Relationship& meantLink(const ustring& type) {
        const auto [found, isNew] = meant_.try_emplace(type, nullptr);
        if (!isNew) return *found->second;
        int most = -1;
        for (const Relationship* link : from_.byType(type)) {
            if (!to_.hasTarget(*link) || isOfAnotherKind(*link)) continue;
            const int weight = weightOf(type, PartName(link->getTargetURI()));
            if (weight > most) found->second = link;
            most = std::max(most, weight);
        }
        return *found->second;
    }

    // How likely it is that this part is the right one of its kind. The thumbnail is the screenshot
    // that was set last, and properties that readers accept beat others; after that, what the
    // part's type and name say.
    int weightOf(const ustring& type, const PartName& name) const {
        const FoundItem* item = from_.findItem(name);
        const bool isThumbnail =
            type == layout::app::kScreenshotRelationship && thumbnails_.contains(item);
        const bool isReadable = std::ranges::any_of(kPropertiesParts, [&](const auto& each) {
            return type == each.part.relationshipType && each.isSound(textOf(*item));
        });
        return 4 * (isThumbnail || isReadable) + claimOf(type, name);
    }

    std::string textOf(const FoundItem& item) const {
        return from_.read(item, kMaxXmlBytes).value_or("");
    }

    // How much speaks for a part being of this kind: its content type counts more than its name.
    int claimOf(const ustring& type, const PartName& name) const {
        const ContentType contentType = to_.getPart(name).getContentType();
        bool isTyped = false, isNamed = false;
        for (const PartKind& kind : kinds_) {
            if (kind.relationshipType != type) continue;
            isTyped = isTyped || kind.contentType == contentType;
            isNamed = isNamed || kind.name == name;
        }
        return 2 * isTyped + isNamed;
    }

    void reportTables() {
        const std::string types(opc::names::kContentTypesItem);
        const std::string relationships = shownName(opc::names::packageRelationships());
        if (!from_.hasTypes) mendTable(types);
        const auto* own = from_.relationshipsItem;
        const bool isLost = own == nullptr || !own->fault.empty();
        if (isLost && (isAppName(from_.file) || !from_.relationships.empty())) {
            mendTable(relationships);
        } else if (isLost && own != nullptr) {
            lose(relationships, own->fault);
        }
        for (const std::string& fault : from_.relationshipFaults)
            lose("an entry of " + relationships, fault);
        for (const std::string& fault : from_.typeFaults)
            lose("an entry of " + types, fault);
    }

    void mendTable(const std::string& name) {
        mend(fmt::format("wrote a new {}, because the old one is lost", name));
    }

    void reportRest() {
        const opc::zip::ZipArchive& archive = *from_.archive;
        const std::uint64_t end = archive.bounds().fileEnd, size = archive.stamp().size;
        std::uint64_t front = archive.items().empty() ? 0 : size;
        for (const opc::zip::ZipItem& item : archive.items())
            front = std::min(front, item.headerOffset);
        if (front != 0) mend(fmt::format("left out {} before the first item", byteCount(front)));
        if (!archive.comment().empty()) mend("left out the comment of the zip file");
        if (end != 0 && end < size) {
            mend(fmt::format("left out {} after the end of the zip file", byteCount(size - end)));
        }
    }

    // If relationships of several types lead to one part, keeps only the likeliest: a part is of
    // one kind, and an edit that replaced it as one would destroy it as the other.
    void settleSharedParts() {
        std::map<PartName, std::vector<Relationship>> links;
        for (const Relationship& link : to_.getRelationships()) {
            if (!layout::isAppRelationship(link.getType()) || !to_.hasTarget(link)) continue;
            links[PartName(link.getTargetURI())].push_back(link);
        }
        for (const auto& [name, shared] : links) {
            const auto likelihood = [&, &part = name](const Relationship& link) {
                return std::pair(claimOf(link.getType(), part), -rankOf(link.getType()));
            };
            const auto meant = std::ranges::max_element(shared, {}, likelihood);
            for (auto link = shared.begin(); link != shared.end(); ++link) {
                if (link == meant) continue;
                loseLink(*link,
                         fmt::format("it leads to {}, as \"{}\" does, which is of another kind "
                                     "and kept",
                                     shownName(name), shown(meant->getID())));
                to_.deleteRelationship(link->getID());
            }
        }
    }

    // Small for the kinds that an app needs most.
    static std::ptrdiff_t rankOf(const ustring& type) {
        return std::ranges::find(layout::app::kParts, ustring_view(type),
                                 &layout::PartKindRow::relationshipType) -
               layout::app::kParts.begin();
    }

    // Adds the missing relationships to parts of an app that have their usual names.
    void linkAppParts() {
        for (const layout::PartKindRow& part : layout::app::kParts) {
            link(PartName(part.name), ustring(part.relationshipType));
        }
        for (const bool isThumbnail : {true, false}) {
            for (const auto& format : layout::app::kScreenshotFormats) {
                const PartName name = layout::screenshotName(format.extension);
                if (thumbnails_.contains(from_.findItem(name)) == isThumbnail)
                    link(name, layout::app::kScreenshotRelationship);
            }
        }
        const auto screenshots = to_.getRelationshipsByType(layout::app::kScreenshotRelationship);
        if (screenshots.size() != 1) return;
        link(PartName(screenshots[0].getTargetURI()),
             PackageHelper::getThumbnailRelationshipType());
    }

    // A part with a screenshot's name that is not the screenshot would keep the next one of its
    // format out.
    void loseUnusedScreenshots() {
        std::set<PartName> used;
        for (const Relationship& link : to_.getRelationships()) {
            if (to_.hasTarget(link)) used.emplace(link.getTargetURI());
        }
        for (const auto& format : layout::app::kScreenshotFormats) {
            const PartName name = layout::screenshotName(format.extension);
            if (!to_.hasPart(name) || used.contains(name)) continue;
            lose(shownName(name), "another screenshot, which no reader shows");
            drop(name);
        }
    }

    void drop(const PartName& name) {
        to_.deletePart(name);
        std::erase_if(report_.kept,
                      [&](const RepairReport::Kept& kept) { return kept.name == shownName(name); });
    }

    void link(const PartName& name, const ustring& type) {
        if (!to_.hasPart(name) || !to_.getRelationshipsByType(type).empty()) return;
        to_.createInternalRelationship(type, name.getURI(), u"");
        mend(fmt::format("added a relationship that leads to {}", shownName(name)));
    }

    // Writes properties that readers refuse anew, with those that apps have. A part that readers
    // accept stays as it is.
    void mendProperties() {
        for (const PropertiesPart& part : kPropertiesParts) {
            const ustring type(part.part.relationshipType);
            for (const Relationship& link : to_.getRelationshipsByType(type))
                mendProperties(part, PartName(link.getTargetURI()));
        }
    }

    void mendProperties(const PropertiesPart& part, const PartName& name) {
        const std::string document = textOf(*from_.findItem(name));
        const bool isSound = part.isSound(document);
        const ContentType type(part.part.contentType);
        if (isSound && to_.getPart(name).getContentType() == type) return;
        std::vector<std::string> names;
        const std::string content =
            isSound ? document : part.toXml(understood(part, document, names));
        drop(name);
        to_.createPart(name, type, opc::model::StandardPartInfo(1, content.size()));
        const auto stream = to_.getPart(name).getOutputStream();
        stream->write(std::as_bytes(std::span(content)));
        stream->flush();
        if (isSound) return mend(fmt::format("gave {} their content type", part.called));
        const std::string kept =
            names.empty() ? "nothing" : fmt::format("only {}", fmt::join(names, ", "));
        mend(fmt::format("rewrote {}, keeping {}", part.called, kept));
    }

    // The properties that can still be read; adds what messages call them to `names`.
    static CoreProperties understood(const PropertiesPart& part, const std::string& document,
                                     std::vector<std::string>& names) {
        const auto elements = opc::model::readXmlElements(document, "");
        CoreProperties properties;
        for (const Property& property : part.properties) {
            const auto found = std::ranges::find(elements, property.element, &XmlElement::name);
            if (found == elements.end()) continue;
            property.set(properties, *found);
            names.emplace_back(property.called);
        }
        return properties;
    }

    const PackageView& from_;
    Package& to_;
    const FileName& file_;
    RepairReport& report_;
    const std::vector<PartKind> kinds_ = layout::app::partKinds();
    std::set<const FoundItem*> xmlParts_, thumbnails_;
    std::map<const FoundItem*, const layout::PartKindRow*> linkedParts_;
    std::map<ustring, const Relationship*> meant_;  // by type
};

constexpr const char* kUnreadable = "nothing in it can be read, so there is nothing to keep";

// Refuses a file of which a repaired copy would hold nothing that readers know.
void requireWorthOfRepair(const PackageView& view) {
    if (view.items.empty() && view.lost.empty()) {
        throw Error(view.file.shown,
                    view.zipRefusal.empty()
                        ? "holds no items, so there is nothing to keep; get the file again"
                        : view.zipRefusal + "; " + kUnreadable);
    }
    if (view.isRepairable) return;
    throw Error(
        view.file.shown,
        isAppName(view.file)
            ? "holds nothing of an app, so there is nothing to repair; choose another file, "
              "and see what this one is with \"qzapp items\""
            : "is not a package, so there is nothing to repair; see what it holds with "
              "\"qzapp items\"");
}

RepairReport writeCopy(const PackageView& view, const FileName& working) {
    const Progress progress(sizeOf(view.file));
    RepairReport report;
    about(working, view.file, [&] {
        const opc::zippackage::ZipPhysicalPackage zip(working.path, true);
        Package package(zip);
        package.open(opc::interfaces::OpenMode::Create);
        Repair(view, package, working, report).run();
        if (report.kept.empty()) {
            throw Error(view.file.shown, std::string(kUnreadable) + "; get the file again");
        }
        package.close();
    });
    return report;
}

}  // namespace

void repairPackage(const FileName& file, const FileName& out, bool mayReplace,
                   const Examine& examine) {
    const PackageView view(file);
    requireWorthOfRepair(view);
    Transaction transaction(out, mayReplace ? Transaction::Start::Empty : Transaction::Start::New);
    const RepairReport report = writeCopy(view, transaction.workingFile());
    requireUnchanged(file);
    const FileName repaired = hold(transaction.workingFile());
    about(repaired, [&] { examine(report, repaired); });
    transaction.commit();
}

}  // namespace qzapp
