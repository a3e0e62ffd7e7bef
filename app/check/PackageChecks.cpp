#include <fmt/format.h>
#include <fl/i18n.hpp>
#include <foundation/ustring.hpp>
#include <opc/CoreProperties.hpp>
#include <opc/CorePropertiesManager.hpp>
#include <opc/FoundPackage.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>
#include <opc/PartName.hpp>
#include <opc/Relationship.hpp>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>

#include "app/Error.hpp"
#include "app/Signatures.hpp"
#include "app/WithPackage.hpp"
#include "app/check/AppLayout.hpp"
#include "app/check/Checks.hpp"
#include "app/check/Findings.hpp"
#include "app/check/PackageView.hpp"

namespace qzapp {
namespace {

using foundation::ustring;
using opc::model::FoundItem;
using opc::model::PartName;
using opc::model::Relationship;
using opc::model::TargetMode;
using opc::qzservices::CoreProperties;

std::string shown(const ustring& text) {
    return fl::i18n::to_display(text);
}

void checkTypes(const PackageView& package, Findings& findings) {
    if (package.typesItem == nullptr) {
        findings.add("types-missing", std::string(opc::names::kContentTypesItem),
                     fmt::format("not a package: the zip file holds no \"{}\"",
                                 opc::names::kContentTypesItem),
                     repairFix(package));
        return;
    }
    const std::string& name = package.typesItem->item->name;
    if (name != opc::names::kContentTypesItem) {
        findings.add("types-spelling", name, "other readers may know only the usual spelling",
                     repairFix(package));
    }
    for (const std::string& fault : package.typeFaults)
        findings.add("types-entry", name, fault, repairFix(package));
    for (const PartName& part : package.typedNames) {
        if (package.find(part) != nullptr) continue;
        findings.add(
            "types-unused", name,
            fmt::format("has a type for {}, which is not in the package", shownName(part)));
    }
}

void checkUntyped(const PackageView& package, Findings& findings) {
    for (const FoundItem& item : package.items) {
        if (!item.name || item.type || &item == package.typesItem) continue;
        // checkOwnRelationships() checks the type of this one.
        if (*item.name == opc::names::packageRelationships()) continue;
        findings.add("item-untyped", item.shownName,
                     fmt::format("not a part, because {} has no type for it; readers ignore it",
                                 opc::names::kContentTypesItem),
                     "add a Default or Override for it, or remove it from the zip file");
    }
}

void checkDerivedNames(const PackageView& package, Findings& findings) {
    for (const auto& [part, parent] : package.derivedNames()) {
        findings.add("names-derive", part->shownName,
                     fmt::format("its name begins with {}, as if that part were a folder",
                                 parent->shownName),
                     "rename one of the parts");
    }
}

void checkOwnRelationships(const PackageView& package, Findings& findings) {
    if (package.relationshipsItem == nullptr) return;
    const std::string& name = package.relationshipsItem->shownName;
    const auto& type = package.relationshipsItem->type;
    const auto& expected = opc::names::relationshipsType();
    if (!type || !(*type == expected)) {
        const std::string found =
            type ? fmt::format("the content type \"{}\"", shown(type->toString()))
                 : "no content type";
        findings.add("relationships-type", name,
                     fmt::format("has {}; expected \"{}\"", found, shown(expected.toString())),
                     repairFix(package));
    }
    for (const std::string& fault : package.relationshipFaults)
        findings.add("relationships-entry", name, fault, repairFix(package));
}

void checkReach(const PackageView& package, Findings& findings) {
    const auto reachable = package.reachable();
    for (const FoundItem& item : package.items) {
        if (!item.isPart() || *item.name == opc::names::packageRelationships()) continue;
        if (opc::names::isRelationshipsName(*item.name)) {
            const auto source = opc::names::sourceOf(*item.name);
            if (source && package.find(*source) != nullptr) continue;
            findings.add("relationships-orphan", item.shownName,
                         "the part that it belongs to is not in the package",
                         "remove it from the zip file");
        } else if (!reachable.contains(&item)) {
            findings.add("part-unreachable", item.shownName,
                         "no relationship leads to it, so readers ignore it",
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
            continue;  // checkApp() follows it
        } else if (relationship.getTargetMode() == TargetMode::External) {
            findings.add(
                "relationship-external", subject,
                fmt::format("leads outside the package, to \"{}\"; it is never followed", target));
        } else if (package.target(relationship) == nullptr) {
            findings.add("relationship-dangling", subject,
                         fmt::format("leads to \"{}\", which is not in the package", target),
                         repairFix(package));
        }
    }
}

void checkSignature(const PackageView& package, Findings& findings) {
    if (!signatures::isSigned(package)) return;
    const std::size_t count = signatures::count(package);
    findings.add(
        "package-signed", "",
        fmt::format("{} digital signature{}, which qzapp does not verify{}", count,
                    count == 1 ? "" : "s",
                    isAppName(package.file) ? "; an edit needs \"--drop-signature\"" : ""));
}

// Readers check core properties only when somebody asks for them, so a package that opens may still
// fail here. Returns them if they do not.
std::optional<CoreProperties> checkCoreProperties(const PackageView& package, Findings& findings) {
    const auto found = package.byType(layout::kCoreProperties.relationshipType);
    const std::string name = shown(ustring(layout::kCoreProperties.name));
    if (found.size() > 1) {
        findings.add(
            "core-properties-several", name,
            fmt::format("{} relationships lead to core properties; at most one may", found.size()),
            repairFix(package));
        return std::nullopt;
    }
    if (!package.opens()) return std::nullopt;
    try {
        return withPackage(package.file, [](opc::model::Package& opened) {
            return opc::qzservices::CorePropertiesManager(opened, 0).getCoreProperties();
        });
    } catch (const Error& e) {
        if (e.isPassing()) throw;
        // If an item is damaged, that is reported and may be the reason.
        const auto isDamaged = [](const FoundItem& item) { return !item.fault.empty(); };
        if (std::ranges::any_of(package.items, isDamaged)) return std::nullopt;
        const std::size_t colon = e.text().find(": ");
        const bool namesPart = e.text().starts_with('/') && colon != std::string::npos;
        findings.add("core-properties-rules", namesPart ? e.text().substr(0, colon) : name,
                     namesPart ? e.text().substr(colon + 2) : e.text(), repairFix(package));
        return std::nullopt;
    }
}

// Reports why readers refuse the package, unless another finding says it already.
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

std::optional<CoreProperties> checkPackage(const PackageView& package, Findings& findings) {
    checkTypes(package, findings);
    checkUntyped(package, findings);
    checkDerivedNames(package, findings);
    checkOwnRelationships(package, findings);
    checkTargets(package, findings);
    checkReach(package, findings);
    checkSignature(package, findings);
    auto properties = checkCoreProperties(package, findings);
    checkRefusal(package, findings);
    return properties;
}

}  // namespace qzapp
