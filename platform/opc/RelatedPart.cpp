#include "platform/opc/RelatedPart.hpp"

#include <string>

namespace opc::model {

namespace {

// `name`, or the first of "/x1.xml", "/x2.xml" and so on that the package does not hold.
PartName freeName(const Package& package, const ustring& name) {
    const auto dot = name.rfind(u'.');
    PartName free{foundation::ustring_view(name)};
    for (std::size_t number = 1; package.hasPart(free); ++number) {
        ustring numbered = name.substr(0, dot);
        for (const char digit : std::to_string(number))
            numbered += char16_t(digit);
        free = PartName(foundation::ustring_view(numbered += name.substr(dot)));
    }
    return free;
}

}  // namespace

std::optional<Part> findTarget(const Package& package, const Relationship& relationship) {
    if (relationship.getTargetMode() == TargetMode::External) return std::nullopt;
    std::optional<PartName> name;
    try {
        name.emplace(relationship.getTargetURI());
    } catch (const Exception&) {
        return std::nullopt;  // a target may be written any way; only a part name leads somewhere
    }
    if (!package.hasPart(*name)) return std::nullopt;
    return package.getPart(*name);
}

Part requireRelatedPart(Package& package, const ustring& relationshipType, const ustring& name,
                        const ContentType& type) {
    const auto relationships = package.getRelationshipsByType(relationshipType);
    for (const auto& relationship : relationships) {
        if (auto part = findTarget(package, relationship)) return *part;
    }
    auto part = package.createPart(freeName(package, name), type, StandardPartInfo(1, 0));
    for (const auto& dangling : relationships)
        package.deleteRelationship(dangling.getID());
    package.createInternalRelationship(relationshipType, part.getName().getURI(), u"");
    return part;
}

}  // namespace opc::model
