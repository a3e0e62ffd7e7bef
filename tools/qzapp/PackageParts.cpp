#include "tools/qzapp/PackageParts.hpp"

#include <fmt/format.h>
#include <opc/Package.hpp>

#include <vector>

#include "package/Layout.hpp"
#include "tools/qzapp/Errors.hpp"

namespace qzapp {
namespace {

using opc::interfaces::OpenMode;
using opc::model::Package;
using opc::model::PackageHelper;
using opc::model::PartName;
using opc::model::Relationship;
using opc::zippackage::ZipPhysicalPackage;

using appserialization::layout::kMetadataRelationship;
using appserialization::layout::kScreenshotRelationship;

// A thumbnail that is another picture stays.
void deleteThumbnailOf(Package& package, const PartName& screenshot) {
    const auto thumbnails =
        package.getRelationshipsByType(PackageHelper::getThumbnailRelationshipType());
    if (thumbnails.size() != 1 || PartName(thumbnails[0].getTargetURI()) != screenshot) return;
    package.deleteRelationship(thumbnails[0].getID());
}

void deleteScreenshot(Package& package, const Relationship& relationship) {
    const PartName part(relationship.getTargetURI());
    deleteThumbnailOf(package, part);
    package.deleteRelationship(relationship.getID());
    if (package.hasPart(part)) package.deletePart(part);
}

}  // namespace

void requireOneMetadataPart(const FileName& file) {
    about(file, [&] {
        const ZipPhysicalPackage zip(file.path, true);
        Package package(zip);
        package.open(OpenMode::Read);
        const std::size_t count = package.getRelationshipsByType(kMetadataRelationship).size();
        if (count <= 1) return;
        throw Error(file.shown, fmt::format("has {} metadata relationships, so its metadata cannot "
                                            "be told and would be lost; create the app anew",
                                            count));
    });
}

bool removeScreenshot(const FileName& file) {
    return about(file, [&] {
        const ZipPhysicalPackage zip(file.path, true);
        Package package(zip);
        package.open(OpenMode::Edit);
        const auto screenshots = package.getRelationshipsByType(kScreenshotRelationship);
        if (screenshots.empty()) return false;
        if (screenshots.size() > 1) {
            throw Error(file.shown,
                        fmt::format("has {} screenshot relationships, so the screenshot "
                                    "cannot be told; create the app anew",
                                    screenshots.size()));
        }
        deleteScreenshot(package, screenshots[0]);
        package.close();
        return true;
    });
}

}  // namespace qzapp
