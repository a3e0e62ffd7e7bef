#pragma once

#include <foundation/ustring.hpp>
#include <opc/PartKind.hpp>
#include <opc/PartName.hpp>
#include <quillcode/CodePart.hpp>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "app/check/Findings.hpp"
#include "package/Layout.hpp"

// What a packaged app consists of, as the checks and the repair see it: one table of the parts that
// the library, the code library and the package library each define for themselves.
namespace qzapp::layout {

namespace app = appserialization::layout;

// A part that an app has once, found by its relationship (the model also by its name), with the
// rules that its absence breaks.
struct AppPart : opc::model::PartKindRow {
    RuleName whenMissing;
    const char* option;  // the option of "qzapp edit" that sets the part
    RuleName whenDangling = "part-dangling";

    // Whether readers parse the part as XML.
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

// The usual part name of a screenshot of this format.
inline opc::model::PartName screenshotName(foundation::ustring_view extension) {
    return opc::model::PartName(foundation::ustring(app::kScreenshotNameStem) +
                                foundation::ustring(extension));
}

// A known element of the metadata part. For a list, `item` is the name of its child elements and
// `attribute` that of their attribute that holds the value; for a text both are empty.
struct MetadataElement {
    std::string name, item, attribute;
};
const std::vector<MetadataElement>& metadataElements();

}  // namespace qzapp::layout
