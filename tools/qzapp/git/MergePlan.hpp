#pragma once

#include <foundation/ustring.hpp>
#include <nlohmann/json.hpp>

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/FieldValues.hpp"
#include "tools/qzapp/git/LineMerge.hpp"
#include "tools/qzapp/git/MergeSide.hpp"

namespace qzapp {

// Something that both sides changed differently. Ours is kept, but of lines both with marks.
struct Conflict {
    // A "field" of the metadata, "lines" of the code or all of its "text", a "part", a
    // "relationship" of the package, an "item" that is not a part, or "metadata" beside the fields.
    std::string what;
    std::string name;
    // The three values for people and programs; null where there is none.
    nlohmann::ordered_json base = nullptr, ours = nullptr, theirs = nullptr;
};
// `hasMarks` says whether both sides' lines are in the result.
Conflict codeConflict(bool hasMarks);

// What makes the result of ours.
struct MergePlan {
    using Keys = std::set<std::string>;

    Keys takenParts;  // those of theirs that replace ours, or are new
    Keys deletedParts;
    Links addedLinks, removedLinks;
    std::optional<std::string> code;                   // where both sides' are merged
    std::optional<FieldValues> metadata;               // where both sides' are merged; all fields
    std::optional<foundation::ustring> legacyRelease;  // goes with `metadata`
    std::vector<Conflict> conflicts;

    bool isEmpty() const;
};

// Changes nothing. Throws Error as LineMerge::merge() does, and if one of the sides cannot be read
// any more.
MergePlan planMerge(const MergeSide& base, const MergeSide& ours, const MergeSide& theirs,
                    LineMerge& lines);

// The types of relationships of which an app has one each. What they lead to is merged as a whole.
bool isSingle(const std::string& type);
// The release is that of the program which saved last, so every save changes it. What a user sets
// is the legacy release.
bool isMerged(Field field);

}  // namespace qzapp
