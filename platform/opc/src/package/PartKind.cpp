#include <opc/PartKind.hpp>

#include <foundation/Shown.hpp>

#include <opc/Exception.hpp>
#include <opc/PackageNames.hpp>

#include <algorithm>
#include <string>

namespace opc::model {

using foundation::shown;

namespace {

// By what a part belongs to a kind, weakest first: by nothing, by its content type, or by its name.
enum class Claim { None, ContentType, Name };

Claim claimOf(const PartKind& kind, const PartName& name, const ContentType& type) {
    if (kind.name == name) return Claim::Name;
    return kind.contentType == type ? Claim::ContentType : Claim::None;
}

// Whether readers would find the part as one of this kind.
bool isFoundAs(const PartKind& kind, const Package& package, const Part& part) {
    if (kind.isFoundByName && kind.name == part.getName()) return true;
    const auto found = package.getRelationshipsByType(kind.relationshipType);
    return std::ranges::any_of(found, [&](const Relationship& each) {
        return package.hasTarget(each) && package.getTarget(each).getName() == part.getName();
    });
}

// The strongest claim of a part to one of the kinds with this relationship type.
Claim claimOf(const ustring& relationshipType, const PartName& name, const ContentType& type,
              std::span<const PartKind> kinds) {
    Claim strongest = Claim::None;
    for (const PartKind& kind : kinds) {
        if (kind.relationshipType == relationshipType)
            strongest = std::max(strongest, claimOf(kind, name, type));
    }
    return strongest;
}

}  // namespace

Part requireOwnTarget(const Package& package, const Relationship& relationship,
                      std::span<const PartKind> kinds) {
    Part part = package.getTarget(relationship);
    const PartName name = part.getName();
    const ContentType type = part.getContentType();
    const Claim own = claimOf(relationship.getType(), name, type, kinds);
    for (const PartKind& other : kinds) {
        if (other.relationshipType == relationship.getType()) continue;
        if (own != Claim::None && own >= claimOf(other, name, type)) continue;
        if (!isFoundAs(other, package, part)) continue;
        throw Exception(
            shown(package.path()) + ": " + shown(names::kRelationshipsPart) + ": relationship \"" +
            shown(relationship.getID()) + "\" of type \"" + shown(relationship.getType()) +
            "\" leads to " + other.what + ", " + shown(part.getName().toString()) +
            ", which this change would destroy; remove the relationship, or let it target a part "
            "of its own");
    }
    return part;
}

std::vector<ustring> danglingAt(const Package& package, const PartName& name,
                                const ustring& relationshipType, std::span<const PartKind> kinds) {
    std::vector<ustring> found;
    if (package.hasPart(name)) return found;
    for (const PartKind& other : kinds) {
        if (other.relationshipType == relationshipType) continue;
        for (const Relationship& each : package.getRelationshipsByType(other.relationshipType)) {
            if (each.getTargetName() == name) found.push_back(each.getID());
        }
    }
    return found;
}

bool isUsedBesides(const Package& package, const PartName& part,
                   std::initializer_list<ustring> types) {
    const auto relationships = package.getRelationships();
    return std::ranges::any_of(relationships, [&](const Relationship& each) {
        return std::ranges::find(types, each.getType()) == types.end() && package.hasTarget(each) &&
               package.getTarget(each).getName() == part;
    });
}

}  // namespace opc::model
