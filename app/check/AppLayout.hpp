#pragma once

#include <foundation/ustring.hpp>
#include <opc/HostProperties.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>
#include <opc/StandardProperties.hpp>
#include <quillcode/CodePart.hpp>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "app/check/Findings.hpp"
#include "package/Layout.hpp"

// What a packaged app consists of, for the work below the level of app files: the names of the library,
// the code part and the core properties in one table.
namespace qzapp::layout {

namespace app = appserialization::layout;

// A part that an app has once, found by its relationship (the model by its name, too).
struct AppPart {
    foundation::ustring_view name, contentType, relationshipType;
    RuleName whenMissing;
    const char* option;  // of "qzapp edit", which sets it
    RuleName whenDangling = "part-dangling";
};
inline constexpr AppPart kModel{
    app::kAppModel.name,
    app::kAppModel.contentType,
    app::kAppModel.relationshipType,
    "model-unlinked",
    "--model FILE",
};
inline constexpr AppPart kCode{
    quillcode::codepart::kName,
    quillcode::codepart::kContentType,
    quillcode::codepart::kRelationshipType,
    "code-missing",
    "--code FILE",
};
inline constexpr AppPart kMetadata{
    app::kMetadata.name, app::kMetadata.contentType, app::kMetadata.relationshipType,
    "metadata-missing",  "--set KVPKGVersion=1",
};
inline constexpr AppPart kCoreProperties{
    opc::qzservices::StandardProperties::kPartName,
    opc::qzservices::StandardProperties::kContentType,
    opc::names::kCorePropertiesRelationship,
    "core-properties-missing",
    "--set Name=NAME",
    "relationship-dangling",
};
inline constexpr AppPart kHostProperties{
    opc::qzservices::HostProperties::kPartName,
    opc::qzservices::HostProperties::kContentType,
    opc::qzservices::HostProperties::kRelationshipType,
    "host-properties-missing",
    "--set KVPKGVersion=1",
    "relationship-dangling",
};
inline constexpr std::array kParts = {kModel, kCode, kMetadata, kCoreProperties, kHostProperties};

// Whether relationships of this type lead to a part of an app.
inline bool isAppRelationship(foundation::ustring_view type) {
    return type == app::kScreenshotRelationship ||
           std::ranges::find(kParts, type, &AppPart::relationshipType) != kParts.end();
}

// The name of a screenshot of this format.
inline opc::model::PartName screenshotName(foundation::ustring_view extension) {
    return opc::model::PartName(foundation::ustring(app::kScreenshotNameStem) +
                                foundation::ustring(extension));
}

// An element of the metadata part; `item` and `attribute` are empty unless it is a list.
struct MetadataElement {
    std::string name, item, attribute;
};
const std::vector<MetadataElement>& metadataElements();

}  // namespace qzapp::layout
