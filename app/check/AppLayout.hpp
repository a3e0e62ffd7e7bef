#pragma once

#include <foundation/ustring.hpp>
#include <opc/PartKind.hpp>
#include <opc/PartName.hpp>
#include <quillcode/CodePart.hpp>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "app/FieldValues.hpp"
#include "app/check/Findings.hpp"
#include "package/Layout.hpp"

// What a packaged app consists of, as the checks and the repair see it. The parts are those of
// package/Layout.hpp; what is added here is what the checks say about them.
namespace qzapp::layout {

namespace app = appserialization::layout;
using opc::model::PartKindRow;

inline constexpr const PartKindRow& kModel = app::kAppModel;
inline constexpr const PartKindRow& kMetadata = app::kMetadata;
inline constexpr const PartKindRow& kCode = app::partOf(quillcode::codepart::kRelationshipType);
inline constexpr const PartKindRow& kCoreProperties =
    app::partOf(opc::model::kCorePropertiesKind.relationshipType);
inline constexpr const PartKindRow& kHostProperties =
    app::partOf(opc::model::kHostPropertiesKind.relationshipType);

// Whether readers parse parts of this kind as XML.
constexpr bool isXml(const PartKindRow& part) {
    return part.contentType.ends_with(u"+xml");
}

// The rules about a part that every app should have.
struct PartRules {
    const PartKindRow& part;
    RuleName whenMissing;
    const char* option;  // the option of "qzapp edit" that sets the part
    RuleName whenDangling = "part-dangling";
};
// An app may lack a part that is not in this table, such as one that older hosts do not write.
inline constexpr std::array kPartRules = {
    PartRules{kModel, "model-unlinked", "--model FILE"},
    PartRules{kCode, "code-missing", "--code FILE"},
    PartRules{kMetadata, "metadata-missing", "--set KVPKGVersion=1"},
    PartRules{
        kCoreProperties,
        "core-properties-missing",
        "--set Name=NAME",
        "relationship-dangling",
    },
    PartRules{
        kHostProperties,
        "host-properties-missing",
        "--set Version=VERSION",
        "relationship-dangling",
    },
};

// The rules about this part; null if an app may lack it.
constexpr const PartRules* rulesOf(const PartKindRow& part) {
    const auto isMeant = [&](const PartRules& rules) {
        return rules.part.relationshipType == part.relationshipType;
    };
    const auto found = std::ranges::find_if(kPartRules, isMeant);
    return found == kPartRules.end() ? nullptr : &*found;
}

// The kind of part that relationships of this type lead to; null for screenshots, which have
// several content types, and for what is not a part of an app.
constexpr const PartKindRow* findPart(foundation::ustring_view relationshipType) {
    const auto found =
        std::ranges::find(app::kParts, relationshipType, &PartKindRow::relationshipType);
    return found == app::kParts.end() ? nullptr : &*found;
}

// Whether relationships of this type lead to a part of an app.
inline bool isAppRelationship(foundation::ustring_view type) {
    return type == app::kScreenshotRelationship || findPart(type) != nullptr;
}

// The usual part name of a screenshot of this format.
inline opc::model::PartName screenshotName(foundation::ustring_view extension) {
    return opc::model::PartName(foundation::ustring(app::kScreenshotNameStem) +
                                foundation::ustring(extension));
}

// A known element of the metadata part, and the field that it holds. For a list, `item` is the name
// of its child elements and `attribute` that of their attribute that holds the value; for a text
// both are empty, and `usual` is what readers take if there is no such element.
struct MetadataElement {
    std::string name, item, attribute;
    Field field;
    std::string usual;
};
const std::vector<MetadataElement>& metadataElements();

}  // namespace qzapp::layout
