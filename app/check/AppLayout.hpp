#pragma once

#include <foundation/ustring.hpp>
#include <opc/Package.hpp>
#include <opc/PartKind.hpp>
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

// A part that an app has once, found by its relationship (the model by its name, too), and what the
// checks say of it.
struct AppPart : opc::model::PartKindRow {
    RuleName whenMissing;
    const char* option;  // of "qzapp edit", which sets it
    RuleName whenDangling = "part-dangling";

    // Whether readers of apps parse it as XML.
    constexpr bool isXml() const { return contentType.ends_with(u"+xml"); }
};
inline constexpr AppPart kModel{app::kAppModel, "model-unlinked", "--model FILE"};
inline constexpr AppPart kCode{quillcode::codepart::kKind, "code-missing", "--code FILE"};
inline constexpr AppPart kMetadata{app::kMetadata, "metadata-missing", "--set KVPKGVersion=1"};
inline constexpr AppPart kCoreProperties{
    opc::model::kCorePropertiesKind,
    "core-properties-missing",
    "--set Name=NAME",
    "relationship-dangling",
};
inline constexpr AppPart kHostProperties{
    opc::model::kHostPropertiesKind,
    "host-properties-missing",
    "--set KVPKGVersion=1",
    "relationship-dangling",
};
inline constexpr std::array kParts = {kModel, kCode, kMetadata, kCoreProperties, kHostProperties};
static_assert(std::ranges::equal(kParts, app::kParts, {}, &AppPart::relationshipType,
                                 &opc::model::PartKindRow::relationshipType),
              "the checks know each part of an app");

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
