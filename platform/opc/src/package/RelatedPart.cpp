#include <opc/RelatedPart.hpp>

#include <opc/PartKind.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <set>
#include <string>

namespace opc::model {

namespace {

// The names to which relationships of other types lead. What is missing there must not become a
// part of ours.
std::set<PartName> namesOfOthers(const Package& package, const ustring& relationshipType) {
    std::set<PartName> names;
    for (const auto& each : package.getRelationships()) {
        const auto name = each.getTargetName();
        if (name && each.getType() != relationshipType) names.insert(*name);
    }
    return names;
}

// `name`, such as "/x.xml", or the first of "/x1.xml", "/x2.xml" and so on that is neither a part's
// name nor the target of a relationship of another type.
PartName freeName(const Package& package, const ustring& name, const ustring& relationshipType) {
    const std::set<PartName> others = namesOfOthers(package, relationshipType);
    const auto dot = name.rfind(u'.');
    PartName free{foundation::ustring_view(name)};
    for (std::size_t number = 1; package.hasPart(free) || others.contains(free); ++number) {
        ustring numbered = name.substr(0, dot);
        for (const char digit : std::to_string(number))
            numbered += char16_t(digit);
        free = PartName(foundation::ustring_view(numbered += name.substr(dot)));
    }
    return free;
}

// The kind of part that is asked for, and the property parts, which it must not replace.
std::array<PartKind, 3> kindsWith(const ustring& relationshipType, const ustring& name,
                                  const ContentType& type) {
    return {{{"the part", relationshipType, PartName(ustring_view(name)), type},
             kCorePropertiesKind.kind(),
             kHostPropertiesKind.kind()}};
}

}  // namespace

void requireNoUntypedItem(const Package& package, const ustring& relationshipType,
                          const PartName& name) {
    const auto relationships = package.getRelationshipsByType(relationshipType);
    if (std::ranges::any_of(relationships,
                            [&](const auto& each) { return package.hasTarget(each); })) {
        return;
    }
    for (const auto& relationship : relationships) {
        if (package.hasUntypedTarget(relationship)) package.getTarget(relationship);  // throws
    }
    package.requireNoUntypedItem(name);
}

Part requireRelatedPart(Package& package, const ustring& relationshipType, const ustring& name,
                        const ContentType& type) {
    const auto relationships = package.getRelationshipsByType(relationshipType);
    for (const auto& relationship : relationships) {
        if (!package.hasTarget(relationship)) continue;
        return requireOwnTarget(package, relationship, kindsWith(relationshipType, name, type));
    }
    requireNoUntypedItem(package, relationshipType, PartName(ustring_view(name)));
    auto part =
        package.createPart(freeName(package, name, relationshipType), type, StandardPartInfo(1, 0));
    for (const auto& dangling : relationships)
        package.deleteRelationship(dangling.getID());
    package.createInternalRelationship(relationshipType, part.getName().getURI(), u"");
    return part;
}

}  // namespace opc::model
