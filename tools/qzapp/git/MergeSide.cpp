#include "tools/qzapp/git/MergeSide.hpp"

#include <fl/i18n.hpp>
#include <foundation/Immortal.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>

#include "app/Error.hpp"
#include "app/PackageParts.hpp"
#include "app/Signatures.hpp"
#include "app/WithPackage.hpp"

namespace qzapp {
namespace {

using opc::model::Package;
using opc::model::Part;
using opc::model::PartName;
using opc::model::Relationship;

// In front of keys that are no names of parts, none of which begins so.
constexpr const char* kLoose = "front ";
constexpr const char* kItem = "item ";

std::string keyOf(const PartFacts& facts) {
    if (facts.isLoose) return kLoose;
    const auto name = PartName::fromName(fl::i18n::utf8_to_ustring(facts.name));
    return name ? name->key() : kItem + facts.name;
}

LinkTarget targetOf(const Relationship& relationship) {
    const auto name = relationship.getTargetName();
    if (name) return {name->key(), true};
    return {fl::i18n::ustring_to_utf8(relationship.getTargetURI().toString()), false};
}

}  // namespace

Link linkOf(const Relationship& relationship) {
    return {targetOf(relationship), fl::i18n::ustring_to_utf8(relationship.getType())};
}

std::vector<Link> linksTo(const Links& links, const LinkTarget& target) {
    std::vector<Link> found;
    for (auto link = links.lower_bound({target, ""}); link != links.end(); ++link) {
        if (link->target != target) break;
        found.push_back(*link);
    }
    return found;
}

void requireWhole(const FileName& file, const Snapshot& snapshot) {
    for (const Fault& fault : snapshot.faults)
        throw Error(file.shown, fault.what + ": " + fault.text);
    if (!snapshot.parts) return;
    for (const PartFacts& part : *snapshot.parts) {
        if (!part.error.empty()) throw Error(file.shown, part.name + ": " + part.error);
    }
}

MergeSide::MergeSide(const FileName& from) : file(from), snapshot(takeSnapshot(from)) {
    requireWhole(from, snapshot);
    for (const PartFacts& facts : *snapshot.parts)
        items.emplace(keyOf(facts), &facts);
    items.erase(opc::names::packageRelationships().key());  // merged one by one
    withPackage(from, [&](Package& package) {
        isSigned = signatures::isSigned(package);
        legacyRelease = legacyReleaseOf(package);
        for (const Part& part : package.getParts())
            partNames.emplace(part.getName().key(), part.getName());
        relationships = package.getRelationships();
    });
    for (const Relationship& relationship : relationships) {
        const Link link = linkOf(relationship);
        targetsByType[link.type].insert(link.target);
        links.insert(link);
    }
}

const PartFacts* MergeSide::find(const std::string& key) const {
    const auto found = items.find(key);
    return found == items.end() ? nullptr : found->second;
}

const LinkTargets& MergeSide::targets(const std::string& type) const {
    static const foundation::Immortal<LinkTargets> none;
    const auto found = targetsByType.find(type);
    return found == targetsByType.end() ? *none : found->second;
}

}  // namespace qzapp
