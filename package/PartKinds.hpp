#pragma once

// The parts that an app has once or not at all, as the package library tells them apart.

#include <opc/HostProperties.hpp>
#include <opc/PartKind.hpp>
#include <opc/StandardProperties.hpp>
#include <quillcode/CodePart.hpp>

#include <vector>

#include "package/Layout.hpp"

namespace appserialization::layout {

inline std::vector<opc::model::PartKind> partKinds() {
    using opc::model::ContentType;
    using opc::model::PartName;
    using opc::qzservices::HostProperties;
    using opc::qzservices::StandardProperties;
    namespace code = quillcode::codepart;
    std::vector<opc::model::PartKind> kinds = {
        {"the app's model", kAppModel.relationshipType, PartName(kAppModel.name),
         ContentType(kAppModel.contentType), true},
        {"the app's code", code::kRelationshipType, PartName(code::kName),
         ContentType(code::kContentType)},
        {"the app's metadata", kMetadata.relationshipType, PartName(kMetadata.name),
         ContentType(kMetadata.contentType)},
        {"the core properties", opc::model::PackageHelper::getCorePropertiesRelationshipType(),
         PartName(StandardProperties::kPartName), ContentType(StandardProperties::kContentType)},
        {"the host's properties", HostProperties::kRelationshipType,
         PartName(HostProperties::kPartName), ContentType(HostProperties::kContentType)},
    };
    for (const auto& format : kScreenshotFormats) {
        kinds.push_back({"the app's screenshot", kScreenshotRelationship,
                         PartName(ustring(kScreenshotNameStem) + format.extension),
                         format.contentType()});
    }
    return kinds;
}

}  // namespace appserialization::layout
