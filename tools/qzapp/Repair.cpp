#include "tools/qzapp/Repair.hpp"

#include <fmt/format.h>
#include <fl/i18n.hpp>
#include <opc/CorePropertiesManager.hpp>
#include <opc/Exception.hpp>
#include <opc/Package.hpp>
#include <opc/PackageTables.hpp>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "tools/qzapp/AppLayout.hpp"
#include "tools/qzapp/Errors.hpp"
#include "tools/qzapp/Files.hpp"
#include "tools/qzapp/PackageView.hpp"
#include "tools/qzapp/Progress.hpp"
#include "tools/qzapp/Transaction.hpp"

namespace qzapp {
namespace {

using foundation::ustring;
using opc::model::ContentType;
using opc::model::Package;
using opc::model::PackageHelper;
using opc::model::PartName;
using opc::model::Relationship;
using opc::model::TargetMode;
using opc::model::URI;
using opc::qzservices::CoreProperties;
using opc::qzservices::CorePropertiesManager;

constexpr const char16_t* kUnknownType = u"application/octet-stream";

std::string shown(const ustring& text) {
    return fl::i18n::to_display(text);
}

// Texts of an XML part's elements, by name.
std::map<std::string, std::string> textsOf(const std::string& document) {
    std::map<std::string, std::string> texts;
    for (const auto& element : opc::model::readXmlElements(document, ""))
        texts.emplace(element.name, element.text);
    return texts;
}

class Repair {
public:
    // Messages call the new package what `file` is shown as.
    Repair(const PackageView& from, Package& to, const FileName& file, RepairReport& report)
        : from_(from), to_(to), file_(file), report_(report), xmlParts_(xmlParts()) {}

    void run() {
        report_.lost = from_.lost;
        for (const ViewedItem& item : from_.items)
            takeItem(item);
        for (const Relationship& relationship : from_.relationships)
            takeRelationship(relationship);
        tellOfTables();
        if (isAppName(from_.file)) linkAppParts();
        mendProperties();
    }

private:
    void lose(const std::string& name, const std::string& reason) {
        report_.lost.push_back({name, reason});
    }
    void mend(std::string text) { report_.mended.push_back(std::move(text)); }

    void takeItem(const ViewedItem& item) {
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
            return lose(item.shownName, e.text());
        }
        const auto content = from_.archive->read(*item.item);
        const auto stream = to_.getPart(*item.name).getOutputStream();
        opc::StreamHelper::copyStreamToStream(*content, *stream);
        report_.kept.push_back({item.shownName, item.item->size});
    }

    // The parts whose XML readers of apps parse.
    std::set<const ViewedItem*> xmlParts() const {
        std::set<const ViewedItem*> parts;
        for (const layout::AppPart& part :
             {layout::kMetadata, layout::kCoreProperties, layout::kHostProperties}) {
            if (isAppName(from_.file)) parts.insert(from_.find(part.name));
            for (const Relationship* link : from_.byType(part.relationshipType))
                parts.insert(from_.target(*link));
        }
        return parts;
    }

    // Why readers stop at such a part; a package without it is better than one with it.
    std::optional<std::string> xmlFault(const ViewedItem& item) const {
        if (!xmlParts_.contains(&item)) return std::nullopt;
        try {
            textsOf(from_.read(item, kMaxXmlBytes).value_or(""));
            return std::nullopt;
        } catch (const opc::Exception& e) {
            return "its XML cannot be read" + std::string(e.what());
        }
    }

    ContentType typeFor(const ViewedItem& item) {
        if (isRelationshipsName(*item.name)) return relationshipsType();
        for (const layout::AppPart& part : layout::kParts) {
            if (*item.name != PartName(part.name)) continue;
            const ContentType expected(part.contentType);
            if (!item.type || !(*item.type == expected)) {
                mend(fmt::format("gave {} the content type of its kind", item.shownName));
            }
            return expected;
        }
        if (item.type) return *item.type;
        mend(fmt::format("gave {} the content type {}, since it had none", item.shownName,
                         shown(kUnknownType)));
        return ContentType(kUnknownType);
    }

    void takeRelationship(const Relationship& relationship) {
        const auto& type = relationship.getType();
        const auto& target = relationship.getTargetURI();
        const auto& id = relationship.getID();
        const bool isExternal = relationship.getTargetMode() == TargetMode::External;
        if (isExternal && !layout::isAppRelationship(type)) {
            to_.createExternalRelationship(type, target, id);
        } else if (isExternal || !leadsToPart(target)) {
            lose(fmt::format("relationship \"{}\"", shown(id)),
                 fmt::format("it leads to \"{}\", which is not there", shown(target.toString())));
        } else if (type == layout::kCoreProperties.relationshipType &&
                   !to_.getRelationshipsByType(type).empty()) {
            lose(fmt::format("relationship \"{}\"", shown(id)),
                 "a package has one core properties part");
        } else {
            to_.createInternalRelationship(type, target, id);
        }
    }

    bool leadsToPart(const URI& target) const {
        try {
            return to_.hasPart(PartName(target));
        } catch (const opc::Exception&) {
            return false;
        }
    }

    void tellOfTables() {
        if (!from_.types) mend("made [Content_Types].xml anew, since it is lost");
        const auto* own = from_.relationshipsItem;
        if (own == nullptr || !own->fault.empty()) {
            mend("made /_rels/.rels anew, since it is lost");
        }
    }

    // A part of an app that has its usual name, and no relationship leads to any of its kind.
    void linkAppParts() {
        for (const layout::AppPart& part : layout::kParts) {
            link(PartName(part.name), ustring(part.relationshipType));
        }
        for (const auto& format : layout::app::kScreenshotFormats)
            link(layout::screenshotName(format.extension), layout::app::kScreenshotRelationship);
        const auto screenshots = to_.getRelationshipsByType(layout::app::kScreenshotRelationship);
        if (screenshots.size() != 1) return;
        link(PartName(screenshots[0].getTargetURI()),
             PackageHelper::getThumbnailRelationshipType());
    }

    void link(const PartName& name, const ustring& type) {
        if (!to_.hasPart(name) || !to_.getRelationshipsByType(type).empty()) return;
        to_.createInternalRelationship(type, name.getURI(), u"");
        mend(fmt::format("added a relationship that leads to {}", shownName(name)));
    }

    // Properties that readers refuse are written anew with what apps have of them.
    void mendProperties() {
        CorePropertiesManager manager(to_, 0);
        try {
            manager.getCoreProperties();
            return;
        } catch (const opc::Exception&) {
            // Told by what is mended below.
        }
        const CoreProperties properties = understoodProperties();
        remove(layout::kCoreProperties);
        remove(layout::kHostProperties);
        manager.setCoreProperties(properties);
        mend(
            "wrote the core properties anew, with name, summary, author, version and release only");
    }

    CoreProperties understoodProperties() const {
        CoreProperties properties;
        auto texts = understood(layout::kCoreProperties);
        texts.merge(understood(layout::kHostProperties));
        const auto take = [&](const char* name, void (CoreProperties::*set)(const ustring&)) {
            const auto found = texts.find(name);
            if (found == texts.end()) return;
            (properties.*set)(fl::i18n::utf8_to_ustring(found->second));
        };
        take("title", &CoreProperties::setTitle);
        take("description", &CoreProperties::setDescription);
        take("creator", &CoreProperties::setCreatedBy);
        take("version", &CoreProperties::setVersion);
        take("contentType", &CoreProperties::setContentType);
        take("release", &CoreProperties::setKORVALRelease);
        return properties;
    }

    std::map<std::string, std::string> understood(const layout::AppPart& part) const {
        const auto links = from_.byType(part.relationshipType);
        const ViewedItem* item = links.empty() ? nullptr : from_.target(*links[0]);
        const auto document = item ? from_.read(*item, kMaxXmlBytes) : std::nullopt;
        try {
            return document ? textsOf(*document) : std::map<std::string, std::string>();
        } catch (const opc::Exception&) {
            return {};
        }
    }

    void remove(const layout::AppPart& part) {
        for (const Relationship& link :
             to_.getRelationshipsByType(ustring(part.relationshipType))) {
            const PartName name(link.getTargetURI());
            to_.deleteRelationship(link.getID());
            if (to_.hasPart(name)) to_.deletePart(name);
        }
    }

    const PackageView& from_;
    Package& to_;
    const FileName& file_;
    RepairReport& report_;
    std::set<const ViewedItem*> xmlParts_;
};

}  // namespace

RepairReport repairPackage(const FileName& file, const FileName& out) {
    const PackageView view(file);
    const Progress progress(sizeOf(file));
    RepairReport report;
    Transaction transaction(out, Transaction::Start::Empty);
    about(transaction.workingFile(), [&] {
        const opc::zippackage::ZipPhysicalPackage zip(transaction.workingFile().path, true);
        Package package(zip);
        package.open(opc::interfaces::OpenMode::Create);
        Repair(view, package, transaction.workingFile(), report).run();
        if (report.kept.empty()) {
            throw Error(file.shown,
                        "nothing in it can be read, so there is nothing to keep; get "
                        "the file again");
        }
        package.close();
    });
    transaction.commit();
    return report;
}

}  // namespace qzapp
