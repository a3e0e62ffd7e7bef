#include "tools/qzapp/git/MergeSide.hpp"

#include <fl/i18n.hpp>
#include <foundation/Immortal.hpp>
#include <opc/FoundPackage.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>

#include <algorithm>

#include "app/Error.hpp"
#include "app/PackageParts.hpp"
#include "app/Signatures.hpp"
#include "app/WithPackage.hpp"
#include "app/check/PackageView.hpp"

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

// An empty set if there is none.
template <class Set>
const Set& setIn(const std::map<std::string, Set>& sets, const std::string& key) {
    static const foundation::Immortal<Set> none;
    const auto found = sets.find(key);
    return found == sets.end() ? *none : found->second;
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
    readRelationshipsOfParts();
}

void MergeSide::readRelationshipsOfParts() {
    const bool hasAny = std::ranges::any_of(partNames, [](const auto& part) {
        return opc::names::isRelationshipsName(part.second) &&
               !(part.second == opc::names::packageRelationships());
    });
    if (!hasAny) return;
    const PackageView package(*file);
    for (const opc::model::FoundItem& item : package.items) {
        if (!item.isPart()) continue;
        for (const Relationship& link : package.relationshipsFrom(item)) {
            const auto target = link.getTargetName();
            if (!target) continue;
            targetsByPart[item.name->key()].insert(target->key());
            partsByTarget[target->key()].insert(item.name->key());
        }
    }
}

const PartFacts* MergeSide::find(const std::string& key) const {
    const auto found = items.find(key);
    return found == items.end() ? nullptr : found->second;
}

const LinkTargets& MergeSide::targets(const std::string& type) const {
    return setIn(targetsByType, type);
}

std::string MergeSide::shownPlace(const LinkTarget& target) const {
    const auto found = partNames.find(target.place);
    return target.isPart && found != partNames.end() ? shownName(found->second) : target.place;
}

const std::set<std::string>& MergeSide::targetsOfPart(const std::string& key) const {
    return setIn(targetsByPart, key);
}

const std::set<std::string>& MergeSide::partsLeadingTo(const std::string& key) const {
    return setIn(partsByTarget, key);
}

}  // namespace qzapp
