#pragma once

#include <foundation/Export.hpp>
#include <opc/HostProperties.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>
#include <opc/StandardProperties.hpp>

#include <array>
#include <initializer_list>
#include <span>

namespace opc::model {

// A kind of part that a package has once or not at all, and how it is found. Parts that come in several
// forms, as pictures do, have a kind for each, of one relationship type.
struct PartKind {
    const char* what;  // for messages: "the app's model"
    ustring relationshipType;
    PartName name;  // the usual one
    ContentType contentType;
    bool isFoundByName = false;  // as well as by relationship
};

// A kind as a constant.
struct PartKindRow {
    const char* what;
    ustring_view name, contentType, relationshipType;
    bool isFoundByName = false;

    PartKind kind() const {
        return {what, ustring(relationshipType), PartName(name), ContentType(contentType),
                isFoundByName};
    }
};
inline constexpr PartKindRow kCorePropertiesKind{
    "the core properties",
    qzservices::StandardProperties::kPartName,
    qzservices::StandardProperties::kContentType,
    names::kCorePropertiesRelationship,
};
inline constexpr PartKindRow kHostPropertiesKind{
    "the host's properties",
    qzservices::HostProperties::kPartName,
    qzservices::HostProperties::kContentType,
    qzservices::HostProperties::kRelationshipType,
};

// What a relationship leads to, for replacing or deleting it as the part of its type. Throws
// opc::Exception where that would destroy a part of another one of `kinds`: where it is found as such,
// and its name and content type do not say that it is of the relationship's own kind. Relationships of
// types that are not among the kinds, and further ones to the same part, are no obstacle.
PLATFORM_API Part requireOwnTarget(const Package& package, const Relationship& relationship,
                                   std::span<const PartKind> kinds);

// Whether relationships of the package of other types than these lead to the part.
PLATFORM_API bool isUsedBesides(const Package& package, const PartName& part,
                                std::initializer_list<ustring> types);

}  // namespace opc::model
