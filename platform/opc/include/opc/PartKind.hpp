#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <opc/HostProperties.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>
#include <opc/PartName.hpp>
#include <opc/Relationship.hpp>
#include <opc/StandardProperties.hpp>

#include <initializer_list>
#include <span>
#include <vector>

namespace opc::model {

// A kind of part that a package has once or not at all, and how readers find it. A part that may
// have one of several content types, as pictures do, has a kind for each, all with the same
// relationship type.
struct PartKind {
    const char* what;          // for messages: "the app's model"
    ustring relationshipType;  // of the relationship from the package to the part
    PartName name;             // the usual one; a package may use another
    ContentType contentType;
    bool isFoundByName = false;  // readers find the part by its name as well as by relationship
};

// A PartKind as a constant: the same fields as unchecked texts.
struct PartKindRow {
    const char* what;
    ustring_view name, contentType, relationshipType;
    bool isFoundByName = false;

    // Throws opc::Exception if a text breaks a rule, which for constants is a mistake in the
    // program.
    PartKind kind() const {
        return {what, ustring(relationshipType), PartName(name), ContentType(contentType),
                isFoundByName};
    }
};
// The two kinds of parts that this library itself writes.
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

// The target of a relationship, for callers that will replace or delete it as the part of the
// relationship's type. Throws opc::Exception if that would destroy a part of another one of
// `kinds`: readers find the target as that other kind, and its name and content type do not make it
// rather one of the relationship's own kind. Also throws as Package::getTarget() does. Further
// relationships to the part do not matter, whether they have the same type or a type that is not
// among the kinds.
PLATFORM_API Part requireOwnTarget(const Package& package, const Relationship& relationship,
                                   std::span<const PartKind> kinds);

// The identifiers of relationships of other types among `kinds` that lead to `name`, where there is
// no part. Whoever creates a part of `relationshipType` there deletes them, because they would make
// it a part of those kinds, too.
PLATFORM_API std::vector<ustring> danglingAt(const Package& package, const PartName& name,
                                             const ustring& relationshipType,
                                             std::span<const PartKind> kinds);

// Whether the package has a relationship to `part` whose type is not among `types`.
PLATFORM_API bool isUsedBesides(const Package& package, const PartName& part,
                                std::initializer_list<ustring> types);

}  // namespace opc::model
