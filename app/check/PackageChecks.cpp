#include <fmt/format.h>
#include <fl/i18n.hpp>
#include <opc/CorePropertiesManager.hpp>
#include <opc/Exception.hpp>
#include <opc/Package.hpp>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "app/Errors.hpp"
#include "app/Files.hpp"
#include "app/Signatures.hpp"
#include "app/check/AppLayout.hpp"
#include "app/check/Checks.hpp"

namespace qzapp {
namespace {

using foundation::ustring;
using opc::model::PartName;
using opc::model::Relationship;
using opc::model::RelationshipsTable;
using opc::model::TargetMode;
using opc::model::URI;

constexpr const char* kTypes = "[Content_Types].xml";

std::string shown(const ustring& text) {
    return fl::i18n::to_display(text);
}

// Any other kind of zip file: every further rule would speak up.
bool isNoPackage(const PackageView& package) {
    return package.typesItem == nullptr && package.relationshipsItem == nullptr &&
           !isAppName(package.file);
}

void checkTypes(const PackageView& package, Findings& findings) {
    if (package.typesItem == nullptr) {
        const bool isOther = !package.isRepairable && package.zipRefusal.empty();
        findings.add("types-missing", kTypes,
                     "not a package: the zip file holds no \"[Content_Types].xml\"",
                     isOther ? "see what it holds with \"qzapp items\"" : repairFix(package));
        return;
    }
    const std::string& name = package.typesItem->item->name;
    if (name != kTypes) {
        findings.add("types-spelling", name, "other readers may look for the usual spelling only",
                     repairFix(package));
    }
    if (!package.types) return;
    for (const std::string& fault : package.types->faults())
        findings.add("types-entry", name, fault, repairFix(package));
    for (const PartName& part : package.types->overrides()) {
        if (package.find(part) != nullptr) continue;
        findings.add(
            "types-unused", name,
            fmt::format("has a type for {}, which is not in the package", shownName(part)));
    }
}

void checkUntyped(const PackageView& package, Findings& findings) {
    for (const ViewedItem& item : package.items) {
        if (!item.name || item.type || &item == package.typesItem) continue;
        if (*item.name == packageRelationships()) continue;  // it has a rule of its own
        findings.add("item-untyped", item.shownName,
                     "no part, since [Content_Types].xml has no type for it; readers pass it over",
                     "add a Default or Override for it, or remove it from the zip file");
    }
}

// Orders part name keys so that those derived from a name follow it directly.
bool isBefore(const ViewedItem* a, const ViewedItem* b) {
    const auto rank = [](char c) { return c == '/' ? 0 : static_cast<unsigned char>(c); };
    return std::ranges::lexicographical_compare(a->name->key(), b->name->key(), {}, rank, rank);
}

void checkDerivedNames(const PackageView& package, Findings& findings) {
    std::vector<const ViewedItem*> parts, folders;
    for (const ViewedItem& item : package.items) {
        if (item.isPart()) parts.push_back(&item);
    }
    std::ranges::sort(parts, isBefore);
    for (const ViewedItem* part : parts) {
        const std::string& key = part->name->key();
        while (!folders.empty() && !key.starts_with(folders.back()->name->key() + "/"))
            folders.pop_back();
        if (!folders.empty()) {
            findings.add("names-derive", part->shownName,
                         "its name derives from that of " + folders.back()->shownName,
                         "rename one of the parts");
        }
        folders.push_back(part);
    }
}

void checkOwnRelationships(const PackageView& package, Findings& findings) {
    if (package.relationshipsItem == nullptr) return;
    const std::string& name = package.relationshipsItem->shownName;
    const auto& type = package.relationshipsItem->type;
    if (!type || !(*type == relationshipsType())) {
        findings.add(
            "relationships-type", name,
            fmt::format("has the content type \"{}\"; expected \"{}\"",
                        type ? shown(type->toString()) : "", shown(relationshipsType().toString())),
            repairFix(package));
    }
    for (const std::string& fault : package.relationshipFaults)
        findings.add("relationships-entry", name, fault, repairFix(package));
}

// The name of the part whose relationships stand in `name`: "/a/_rels/b.rels" belongs to "/a/b".
std::optional<PartName> sourceOf(const PartName& name) {
    ustring text = name.toString();
    const std::size_t folder = text.rfind(u'/', text.rfind(u'/') - 1);
    text = text.substr(0, folder + 1) + text.substr(text.rfind(u'/') + 1);
    text.resize(text.size() - std::u16string_view(u".rels").size());
    if (!PartName::isValid(text)) return std::nullopt;
    return PartName(std::u16string_view(text));
}

// A target as it is meant where `source` says it: relative to the source's folder.
URI resolved(const PartName& source, const URI& target) {
    const ustring& text = target.toString();
    if (text.starts_with(u'/')) return target;
    const ustring& name = source.toString();
    return URI(name.substr(0, name.rfind(u'/') + 1) + text);
}

// Follows relationships from the package on.
class Reach {
public:
    explicit Reach(const PackageView& package) : package_(&package) {}

    void follow() {
        for (const Relationship& relationship : package_->relationships)
            visit(package_->target(relationship));
        while (!open_.empty()) {
            const ViewedItem* part = open_.back();
            open_.pop_back();
            followFrom(*part);
        }
    }
    bool holds(const PartName& name) const { return reached_.contains(name.key()); }

private:
    void visit(const ViewedItem* part) {
        if (part != nullptr && reached_.insert(part->name->key()).second) open_.push_back(part);
    }

    void followFrom(const ViewedItem& part) {
        const ustring& name = part.name->toString();
        const std::size_t slash = name.rfind(u'/') + 1;
        const ustring table = name.substr(0, slash) + u"_rels/" + name.substr(slash) + u".rels";
        const ViewedItem* found = PartName::isValid(table) ? package_->find(table) : nullptr;
        const auto document = found ? package_->read(*found, kMaxXmlBytes) : std::nullopt;
        if (!document) return;
        for (const Relationship& relationship : RelationshipsTable(*document).relationships) {
            visit(package_->target(Relationship(relationship.getID(), relationship.getType(),
                                                resolved(*part.name, relationship.getTargetURI()),
                                                relationship.getTargetMode())));
        }
    }

    const PackageView* package_;
    std::set<std::string> reached_;  // part name keys
    std::vector<const ViewedItem*> open_;
};

void checkReach(const PackageView& package, Findings& findings) {
    Reach reach(package);
    reach.follow();
    for (const ViewedItem& item : package.items) {
        if (!item.isPart() || *item.name == packageRelationships()) continue;
        if (isRelationshipsName(*item.name)) {
            const auto source = sourceOf(*item.name);
            if (source && package.find(*source) != nullptr) continue;
            findings.add("relationships-orphan", item.shownName,
                         "the part that it belongs to is not in the package",
                         "remove it from the zip file");
        } else if (!reach.holds(*item.name)) {
            findings.add("part-unreachable", item.shownName,
                         "no relationship leads to it, so readers pass it over",
                         "add a relationship that leads to it, or remove it");
        }
    }
}

void checkTargets(const PackageView& package, Findings& findings) {
    const bool isApp = isAppName(package.file);
    for (const Relationship& relationship : package.relationships) {
        const std::string subject = fmt::format("relationship \"{}\"", shown(relationship.getID()));
        const std::string target = shown(relationship.getTargetURI().toString());
        if (isApp && layout::isAppRelationship(relationship.getType())) {
            continue;  // the app's own checks follow it
        } else if (relationship.getTargetMode() == TargetMode::External) {
            findings.add(
                "relationship-external", subject,
                fmt::format("leads out of the package, to \"{}\"; it is never followed", target));
        } else if (package.target(relationship) == nullptr) {
            findings.add("relationship-dangling", subject,
                         fmt::format("leads to \"{}\", which is no part of the package", target),
                         repairFix(package));
        }
    }
}

void checkSignature(const PackageView& package, Findings& findings) {
    if (!signatures::isSigned(package)) return;
    const std::size_t count = signatures::count(package);
    findings.add("package-signed", "",
                 fmt::format("{} digital signature{}, not verified here; an edit takes "
                             "\"--drop-signature\"",
                             count, count == 1 ? "" : "s"));
}

// Readers check them when they ask for properties, so a package that opens may still fail here.
void checkCoreProperties(const PackageView& package, Findings& findings) {
    const auto found = package.byType(layout::kCoreProperties.relationshipType);
    const std::string name = shown(ustring(layout::kCoreProperties.name));
    if (found.size() > 1) {
        findings.add(
            "core-properties-several", name,
            fmt::format("{} relationships lead to core properties; at most one may", found.size()),
            repairFix(package));
        return;
    }
    if (!package.opens()) return;
    try {
        about(package.file, [&] {
            const opc::zippackage::ZipPhysicalPackage zip(package.file.path, true);
            opc::model::Package opened(zip);
            opened.open(opc::interfaces::OpenMode::Read);
            opc::qzservices::CorePropertiesManager(opened, 0).getCoreProperties();
        });
    } catch (const Error& e) {
        // Damaged bytes have been told.
        const auto isDamaged = [](const ViewedItem& item) { return !item.fault.empty(); };
        if (std::ranges::any_of(package.items, isDamaged)) return;
        const std::size_t colon = e.text().find(": ");
        const bool namesPart = e.text().starts_with('/') && colon != std::string::npos;
        findings.add("core-properties-rules", namesPart ? e.text().substr(0, colon) : name,
                     namesPart ? e.text().substr(colon + 2) : e.text(), repairFix(package));
    }
}

// The refusal is told by itself only when no other finding says the same.
void checkRefusal(const PackageView& package, Findings& findings) {
    const std::string& refusal = package.packageRefusal;
    if (refusal.empty()) return;
    for (const Finding& finding : findings.all()) {
        const bool isError = finding.rule->severity == Severity::Error;
        if (isError && (refusal.find(finding.text) != std::string::npos ||
                        finding.rule == &*RuleName("names-derive") ||
                        finding.rule == &*RuleName("relationships-type"))) {
            return;
        }
    }
    findings.add("package-refused", "", refusal, repairFix(package));
}

}  // namespace

void checkPackage(const PackageView& package, Findings& findings) {
    checkTypes(package, findings);
    if (isNoPackage(package)) return;
    checkUntyped(package, findings);
    checkDerivedNames(package, findings);
    checkOwnRelationships(package, findings);
    checkTargets(package, findings);
    checkReach(package, findings);
    checkSignature(package, findings);
    checkCoreProperties(package, findings);
    checkRefusal(package, findings);
}

}  // namespace qzapp
