#include <opc/PartKind.hpp>

#include <foundation/Shown.hpp>

#include "platform/opc/PackageNames.hpp"

#include <algorithm>
#include <string>

namespace opc::model {

using foundation::shown;

namespace {

Claim claimOf(const PartKind& kind, const Part& part) {
    if (kind.name == part.getName()) return Claim::Name;
    return kind.contentType == part.getContentType() ? Claim::ContentType : Claim::None;
}

// Whether readers would find the part as one of this kind.
bool isFoundAs(const PartKind& kind, const Package& package, const Part& part) {
    if (kind.isFoundByName && kind.name == part.getName()) return true;
    const auto found = package.getRelationshipsByType(kind.relationshipType);
    return std::ranges::any_of(found, [&](const Relationship& each) {
        return package.hasTarget(each) && package.getTarget(each).getName() == part.getName();
    });
}

}  // namespace

Claim claimOf(const ustring& relationshipType, const Part& part, std::span<const PartKind> kinds) {
    Claim strongest = Claim::None;
    for (const PartKind& kind : kinds) {
        if (kind.relationshipType == relationshipType)
            strongest = std::max(strongest, claimOf(kind, part));
    }
    return strongest;
}

Part requireOwnTarget(const Package& package, const Relationship& relationship,
                      std::span<const PartKind> kinds) {
    Part part = package.getTarget(relationship);
    const Claim own = claimOf(relationship.getType(), part, kinds);
    for (const PartKind& other : kinds) {
        if (other.relationshipType == relationship.getType()) continue;
        if (own != Claim::None && own >= claimOf(other, part)) continue;
        if (!isFoundAs(other, package, part)) continue;
        throw Exception(
            shown(package.path()) + ": " + shown(names::kRelationshipsPart) + ": relationship \"" +
            shown(relationship.getID()) + "\" of type \"" + shown(relationship.getType()) +
            "\" leads to " + other.what + ", " + shown(part.getName().toString()) +
            ", which this change would destroy; remove it, or lead it to a part of its own");
    }
    return part;
}

}  // namespace opc::model
