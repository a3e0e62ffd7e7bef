#pragma once

#include <foundation/ustring.hpp>
#include <opc/PartName.hpp>
#include <opc/Relationship.hpp>

#include <compare>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/FileName.hpp"
#include "tools/qzapp/verbs/Snapshot.hpp"

namespace qzapp {

// Where a relationship leads: a part, by its key, or another place, by its URI.
struct LinkTarget {
    std::string place;
    bool isPart;
    auto operator<=>(const LinkTarget&) const = default;
};
using LinkTargets = std::set<LinkTarget>;

// A relationship, without its id. Those that lead to the same target stand beside each other in a
// set.
struct Link {
    LinkTarget target;
    std::string type;
    auto operator<=>(const Link&) const = default;
};
using Links = std::set<Link>;
Link linkOf(const opc::model::Relationship& relationship);
// Those of `links` that lead to a target.
std::vector<Link> linksTo(const Links& links, const LinkTarget& target);

// A packaged app as a merge compares it. Items are found by their keys: for parts, that is
// PartName::key().
struct MergeSide {
    // A side without a file has nothing.
    MergeSide() = default;
    // Throws Error if something of the app cannot be read.
    explicit MergeSide(const FileName& from);
    MergeSide(const MergeSide&) = delete;  // `items` refers to `snapshot`
    MergeSide& operator=(const MergeSide&) = delete;

    // Null if there is no such item.
    const PartFacts* find(const std::string& key) const;
    // The targets of all relationships of a type.
    const LinkTargets& targets(const std::string& type) const;
    // The name of the part, or the URI.
    std::string shownPlace(const LinkTarget& target) const;
    // The parts to which the relationships of a part lead, and those whose relationships lead to
    // it.
    const std::set<std::string>& targetsOfPart(const std::string& key) const;
    const std::set<std::string>& partsLeadingTo(const std::string& key) const;

    std::optional<FileName> file;
    Snapshot snapshot;
    std::map<std::string, const PartFacts*> items;
    std::map<std::string, opc::model::PartName> partNames;  // of those items that are parts
    Links links;
    std::map<std::string, LinkTargets> targetsByType;
    std::vector<opc::model::Relationship> relationships;
    std::map<std::string, std::set<std::string>> targetsByPart, partsByTarget;
    bool isSigned = false;
    std::optional<foundation::ustring> legacyRelease;  // see legacyReleaseOf()

private:
    void readRelationshipsOfParts();
};

// Throws Error unless everything of the app could be read.
void requireWhole(const FileName& file, const Snapshot& snapshot);

}  // namespace qzapp
