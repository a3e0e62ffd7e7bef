#include "app/PackageParts.hpp"

#include <fmt/format.h>
#include <appserialization/ustring.hpp>
#include <fl/i18n.hpp>
#include <opc/CorePropertiesManager.hpp>
#include <opc/HostProperties.hpp>
#include <opc/Package.hpp>
#include <opc/PartKind.hpp>
#include <opc/PartName.hpp>
#include <opc/RelatedPart.hpp>
#include <opc/Relationship.hpp>
#include <opc/ZipPhysicalPackage.hpp>
#include <quillcode/CodePart.hpp>

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

#include "app/Error.hpp"
#include "app/Signatures.hpp"
#include "app/WithPackage.hpp"
#include "app/check/AppLayout.hpp"
#include "app/check/Checks.hpp"
#include "app/check/PackageView.hpp"
#include "package/Layout.hpp"
#include "package/PartKinds.hpp"

namespace qzapp {
namespace {

using foundation::ustring;
using opc::interfaces::OpenMode;
using opc::model::Package;
using opc::model::PackageHelper;
using opc::model::PartName;
using opc::model::Relationship;
using opc::zippackage::ZipPhysicalPackage;

// A kind of part that an edit replaces.
struct EditedKind {
    ustring relationshipType;
    const char* name;
    // Several relationships are allowed, because readers and writers agree on which one counts.
    bool mayHaveSeveral;
    // The writer fails on a dangling relationship of this kind, and on a part of the usual name
    // that has none.
    bool mustLeadSomewhere;
};

std::vector<EditedKind> kindsOf(const PartsToEdit& parts) {
    std::vector<EditedKind> kinds;
    if (parts.code) kinds.push_back({quillcode::codepart::kRelationshipType, "code", false, false});
    if (parts.model) kinds.push_back({layout::app::kAppModelRelationship, "model", true, true});
    if (parts.screenshot)
        kinds.push_back({layout::app::kScreenshotRelationship, "screenshot", false, false});
    if (parts.metadata) {
        kinds.push_back({layout::app::kMetadataRelationship, "metadata", false, true});
        kinds.push_back(
            {PackageHelper::getCorePropertiesRelationshipType(), "core properties", false, false});
        kinds.push_back(
            {opc::qzservices::HostProperties::kRelationshipType, "host properties", true, false});
    }
    return kinds;
}

[[noreturn]] void throwStray(const FileName& file, const PartName& name, const char* kind) {
    throw Error(file.shown,
                fmt::format("has a part {}, but no {} relationship leads to it, so it may be "
                            "something else; make a copy in which it is the {}: {}",
                            shownName(name), kind, kind, repairCommand(file)));
}

// Refuses if there is no relationship of this kind, but a part with the name that the new part
// would get.
void requireNoStray(const FileName& file, const Package& package, const EditedKind& kind) {
    if (!package.getRelationshipsByType(kind.relationshipType).empty()) return;
    const PartName name(layout::findPart(kind.relationshipType)->name);
    if (package.hasPart(name)) throwStray(file, name, kind.name);
}

// Runs `require`. To the Error that it throws, adds the command that makes a repaired copy, which
// could be edited; `copy` says how the copy differs.
template <class Require>
void orRepair(const FileName& file, const char* copy, Require require) {
    try {
        about(file, require);
    } catch (const Error& e) {
        throw Error(file.shown,
                    fmt::format("{}, or make a copy {}: {}", e.text(), copy, repairCommand(file)));
    }
}

// Refuses if the part to be replaced, or one of the name that a new part would get, has no content
// type.
void requireTyped(const FileName& file, const Package& package, const EditedKind& kind,
                  const ustring& screenshotFormat) {
    const layout::PartKindRow* const part = layout::findPart(kind.relationshipType);
    const bool isScreenshot = part == nullptr;
    if (isScreenshot && screenshotFormat.empty()) return;  // it is removed, so no part is made
    const PartName name =
        isScreenshot ? layout::screenshotName(screenshotFormat) : PartName(part->name);
    orRepair(file, "in which it has one",
             [&] { requireNoUntypedItem(package, kind.relationshipType, name); });
}

void requireClear(const FileName& file, const Package& package, const EditedKind& kind) {
    const auto links = package.getRelationshipsByType(kind.relationshipType);
    if (links.size() > 1 && !kind.mayHaveSeveral) {
        throw Error(file.shown, fmt::format("has {} {} relationships, and qzapp cannot tell which "
                                            "one is right; make a copy that has one: {}",
                                            links.size(), kind.name, repairCommand(file)));
    }
    if (kind.mustLeadSomewhere) requireNoStray(file, package, kind);
    // If no relationship leads to a part, the writer makes a new one and replaces nothing.
    const auto replaced = std::ranges::find_if(links, [&](const Relationship& link) {
        return kind.mustLeadSomewhere || package.hasTarget(link);
    });
    if (replaced == links.end()) return;
    orRepair(file, "without it",
             [&] { requireOwnTarget(package, *replaced, layout::app::partKinds()); });
}

// Whether the name of the new screenshot's part belongs to something else. Throws if a part of that
// name may be an old screenshot: no screenshot relationship exists, and none but a thumbnail
// relationship leads to the part.
bool isNameTaken(const FileName& file, const Package& package, const PartName& name) {
    if (package.hasUntypedItem(name)) return true;
    if (!package.hasPart(name)) return false;
    for (const Relationship& link :
         package.getRelationshipsByType(layout::app::kScreenshotRelationship)) {
        if (package.hasTarget(link)) return !(package.getTarget(link).getName() == name);
    }
    const bool isOther = isUsedBesides(
        package, name,
        {layout::app::kScreenshotRelationship, PackageHelper::getThumbnailRelationshipType()});
    if (!isOther) throwStray(file, name, "screenshot");
    return true;
}

bool leadToTheSame(const Package& package, const Relationship& a, const Relationship& b) {
    if (package.hasTarget(a) && package.hasTarget(b))
        return package.getTarget(a).getName() == package.getTarget(b).getName();
    return a.getTargetMode() == b.getTargetMode() &&
           a.getTargetURI().toString() == b.getTargetURI().toString();
}

std::optional<std::string> otherThumbnailOf(const Package& package) {
    const auto thumbnails =
        package.getRelationshipsByType(PackageHelper::getThumbnailRelationshipType());
    if (thumbnails.size() != 1 || !package.hasTarget(thumbnails[0])) return std::nullopt;
    for (const Relationship& link :
         package.getRelationshipsByType(layout::app::kScreenshotRelationship)) {
        if (leadToTheSame(package, thumbnails[0], link)) return std::nullopt;
    }
    return shownName(package.getTarget(thumbnails[0]).getName());
}

PackageFacts requireEditable(const FileName& file, Package& package, const PartsToEdit& parts) {
    if (!parts.signature && signatures::isSigned(package)) {
        throw SignedError(file.shown, "is signed, and no signature would be valid after an edit");
    }
    const ustring format = fl::i18n::to_lower(parts.newFormat);
    for (const EditedKind& kind : kindsOf(parts)) {
        requireTyped(file, package, kind, format);
        requireClear(file, package, kind);
    }
    PackageFacts facts;
    if (!format.empty()) {
        const PartName name = layout::screenshotName(format);
        if (isNameTaken(file, package, name)) facts.takenName = shownName(name);
    }
    if (parts.metadata) facts.legacyRelease = legacyReleaseOf(package);
    if (parts.screenshot) facts.otherThumbnail = otherThumbnailOf(package);
    return facts;
}

void removeScreenshot(Package& package) {
    const auto screenshots = package.getRelationshipsByType(layout::app::kScreenshotRelationship);
    if (screenshots.empty()) return;
    const Relationship& link = screenshots[0];
    const auto thumbnails =
        package.getRelationshipsByType(PackageHelper::getThumbnailRelationshipType());
    // A thumbnail that is a different picture stays.
    if (thumbnails.size() == 1 && leadToTheSame(package, thumbnails[0], link))
        package.deleteRelationship(thumbnails[0].getID());
    const bool isOnlyScreenshot =
        package.hasTarget(link) && !isUsedBesides(package, package.getTarget(link).getName(),
                                                  {layout::app::kScreenshotRelationship,
                                                   PackageHelper::getThumbnailRelationshipType()});
    if (isOnlyScreenshot) package.deletePart(package.getTarget(link).getName());
    package.deleteRelationship(link.getID());
}

// "/metadata/appScreenshot.N.png" with the first N, from 1, that is free.
PartName freeScreenshotName(const Package& package, const ustring& extension) {
    for (std::size_t number = 1;; ++number) {
        const ustring prefix = fl::i18n::utf8_to_ustring(std::to_string(number) + ".");
        PartName name = layout::screenshotName(prefix + extension);
        if (!package.hasPart(name) && !package.hasUntypedItem(name)) return name;
    }
}

// If there are several thumbnails, it is unknown which one belonged to the old screenshot, so all
// stay.
void deleteOnlyThumbnail(Package& package) {
    const auto thumbnails =
        package.getRelationshipsByType(PackageHelper::getThumbnailRelationshipType());
    if (thumbnails.size() == 1) package.deleteRelationship(thumbnails[0].getID());
}

PartName setScreenshotBeside(Package& package, const appserialization::Screenshot& screenshot) {
    removeScreenshot(package);
    deleteOnlyThumbnail(package);
    const ustring extension = fl::i18n::to_lower(screenshot.first);
    const auto format = std::ranges::find(layout::app::kScreenshotFormats, extension,
                                          &layout::app::ScreenshotFormatRow::extension);
    PartName name = freeScreenshotName(package, extension);
    const auto stream =
        package.createPart(name, format->contentType(), layout::app::partInfo()).getOutputStream();
    for (const ustring& type : {ustring(layout::app::kScreenshotRelationship),
                                PackageHelper::getThumbnailRelationshipType()}) {
        package.createInternalRelationship(type, name.getURI(), u"");
    }
    stream->write(std::as_bytes(std::span(screenshot.second)));
    stream->flush();
    return name;
}

bool hasAny(const Package& package, const PartsToEdit& removed) {
    return (removed.screenshot &&
            !package.getRelationshipsByType(layout::app::kScreenshotRelationship).empty()) ||
           (removed.signature && signatures::isSigned(package));
}

// Opens the package for editing, calls `work` with it, and saves.
template <class Work>
void editPackage(const FileName& file, Work work) {
    about(file, [&] {
        const ZipPhysicalPackage zip(file.path, true);
        Package package(zip);
        package.open(OpenMode::Edit);
        work(package);
        package.close();
    });
}

}  // namespace

std::optional<ustring> legacyReleaseOf(Package& package) {
    const auto info = opc::qzservices::CorePropertiesManager(package, 0)
                          .getCoreProperties()
                          .getKORVALReleaseInfo();
    return info && info->legacy ? std::optional(info->release) : std::nullopt;
}

PackageFacts requireEditable(const FileName& file, const PartsToEdit& parts) {
    return withPackage(file,
                       [&](Package& package) { return requireEditable(file, package, parts); });
}

std::string setScreenshotBeside(const FileName& file,
                                const appserialization::Screenshot& screenshot) {
    std::string name;
    editPackage(file, [&](Package& package) {
        name = shownName(setScreenshotBeside(package, screenshot));
    });
    return name;
}

bool hasAny(const FileName& file, const PartsToEdit& removed) {
    return withPackage(file, [&](const Package& package) { return hasAny(package, removed); });
}

void removeParts(const FileName& file, const PartsToEdit& parts) {
    editPackage(file, [&](Package& package) {
        requireEditable(file, package, parts);
        if (parts.screenshot) removeScreenshot(package);
        if (parts.signature) signatures::remove(package);
    });
}

}  // namespace qzapp
