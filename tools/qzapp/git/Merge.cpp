#include "tools/qzapp/git/Merge.hpp"

#include <appserialization/AppFileWriter.hpp>
#include <appserialization/AppMetadata.hpp>
#include <appserialization/ustring.hpp>
#include <fl/FileDescriptor.hpp>
#include <fl/i18n.hpp>
#include <foundation/ustring.hpp>
#include <opc/Limits.hpp>
#include <opc/Package.hpp>
#include <opc/PartKind.hpp>
#include <opc/PartName.hpp>
#include <opc/Relationship.hpp>
#include <opc/Streams.hpp>
#include <opc/XmlElements.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <set>
#include <span>
#include <string_view>
#include <tuple>
#include <utility>
#include <variant>

#include "app/Error.hpp"
#include "app/FieldValues.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/MetadataJson.hpp"
#include "app/PackageParts.hpp"
#include "app/Packaging.hpp"
#include "app/WithPackage.hpp"
#include "app/check/AppLayout.hpp"
#include "app/check/Checks.hpp"
#include "app/check/Findings.hpp"
#include "package/Layout.hpp"
#include "tools/qzapp/git/MergeSide.hpp"
#include "tools/qzapp/git/ThreeWay.hpp"
#include "tools/qzapp/verbs/Snapshot.hpp"

namespace qzapp {
namespace {

using nlohmann::ordered_json;
using opc::interfaces::OpenMode;
using opc::model::Package;
using opc::model::PackageHelper;
using opc::model::Relationship;

std::string utf8(foundation::ustring_view text) {
    return fl::i18n::ustring_to_utf8(text);
}

using Keys = std::set<std::string>;

// The types of relationships of which an app has one each. What they lead to is merged as a whole.
bool isSingle(const std::string& type) {
    const foundation::ustring text = fl::i18n::utf8_to_ustring(type);
    return layout::isAppRelationship(text) || text == PackageHelper::getThumbnailRelationshipType();
}

// The types of the parts that hold the metadata record.
constexpr std::array kMetadataKinds = {&layout::kMetadata, &layout::kCoreProperties,
                                       &layout::kHostProperties};

// The release is that of the program which saved last, so every save changes it. What a user sets is
// the legacy release.
bool isMerged(Field field) {
    return field != Field::KORVALRelease;
}

ordered_json factsJson(const PartFacts* facts) {
    if (facts == nullptr) return nullptr;
    return {{"contentType", facts->contentType}, {"size", facts->size}, {"sha256", facts->sha256}};
}

ordered_json targetsJson(const LinkTargets& targets) {
    ordered_json places = ordered_json::array();
    for (const LinkTarget& target : targets)
        places.push_back(target.place);
    return places;
}

Conflict codeConflict(bool hasMarks) {
    return {.what = hasMarks ? "lines" : "text", .name = "code"};
}

// What counts of an item. Nothing if there is none.
using Meaning = std::optional<std::pair<std::string, std::string>>;
Meaning meaningOf(const PartFacts* facts) {
    if (facts == nullptr) return std::nullopt;
    return std::pair(facts->contentType, facts->sha256OfMeaning);
}

// Finds out what to do to make the result of ours, and what is in conflict. Changes nothing.
class Plan {
public:
    Plan(const MergeSide& base, const MergeSide& ours, const MergeSide& theirs, LineMerge& lines)
        : base_(base), ours_(ours), theirs_(theirs), lines_(lines) {
        planMetadata();
        planLinks();
        planItems();
        dropWhatNothingLeadsTo();
        dropLinksToNothing();
    }

    bool isEmpty() const {
        return takenParts.empty() && deletedParts.empty() && addedLinks.empty() &&
               removedLinks.empty() && !code && !metadata;
    }

    Keys takenParts;  // those of theirs that replace ours, or are new
    Keys deletedParts;
    Links addedLinks, removedLinks;
    std::optional<std::string> code;       // where both sides' are merged
    std::optional<FieldValues> metadata;   // where both sides' are merged; all fields
    std::optional<ustring> legacyRelease;  // goes with `metadata`
    std::vector<Conflict> conflicts;

private:
    template <class Get>
    auto outcome(Get get) const {
        return outcomeOf(get(base_), get(ours_), get(theirs_));
    }
    template <class Get>
    void addConflict(const char* what, const std::string& name, Get get) {
        conflicts.push_back({what, name, get(base_), get(ours_), get(theirs_)});
    }

    static Keys partsOf(const MergeSide& side, const layout::PartKindRow& kind) {
        Keys keys;
        for (const LinkTarget& target : side.targets(utf8(kind.relationshipType))) {
            if (target.isPart && side.find(target.place) != nullptr) keys.insert(target.place);
        }
        return keys;
    }

    // The record is in several parts, which one side or the other has changed as a whole; or else it is
    // merged field by field.
    void planMetadata() {
        const auto meaning = [](const MergeSide& side) {
            std::vector<std::pair<std::string, Meaning>> all;
            for (const auto* kind : kMetadataKinds) {
                for (const std::string& key : partsOf(side, *kind))
                    all.emplace_back(key, meaningOf(side.find(key)));
            }
            return all;
        };
        if (outcome(meaning) != Outcome::Conflict) return;
        for (const MergeSide* side : {&base_, &ours_, &theirs_}) {
            for (const auto* kind : kMetadataKinds)
                settled_.merge(partsOf(*side, *kind));
        }
        for (const auto* kind : kMetadataKinds) {
            settledTypes_.insert(utf8(kind->relationshipType));
            planRestOf(*kind);
        }
        planFields();
    }

    void planFields() {
        FieldValues merged = *ours_.snapshot.metadata;
        for (const Field field : allFields()) {
            if (!isMerged(field)) continue;
            if (isList(field)) {
                mergeList(merged, field);
            } else {
                mergeText(merged, field);
            }
        }
        mergeLegacyRelease();
        if (merged != *ours_.snapshot.metadata || legacyRelease != ours_.legacyRelease)
            metadata = std::move(merged);
    }

    void mergeLegacyRelease() {
        const Outcome found = outcome([](const MergeSide& side) { return side.legacyRelease; });
        legacyRelease = found == Outcome::Theirs ? theirs_.legacyRelease : ours_.legacyRelease;
        if (found != Outcome::Conflict) return;
        addConflict("field", nameOf(Field::KORVALRelease), [](const MergeSide& side) {
            return side.legacyRelease ? ordered_json(utf8(*side.legacyRelease)) : ordered_json();
        });
    }

    static std::optional<FieldValue> valueIn(const MergeSide& side, Field field) {
        if (!side.snapshot.metadata) return std::nullopt;
        return side.snapshot.metadata->at(field);
    }
    static List listIn(const MergeSide& side, Field field) {
        const auto value = valueIn(side, field);
        return value ? std::get<List>(*value) : List();
    }

    void addFieldConflict(Field field) {
        addConflict("field", nameOf(field), [&](const MergeSide& side) {
            const auto value = valueIn(side, field);
            return value ? valueToJson(*value) : ordered_json(nullptr);
        });
    }

    void mergeText(FieldValues& merged, Field field) {
        const Outcome found = outcome([&](const MergeSide& side) { return valueIn(side, field); });
        if (found == Outcome::Theirs) merged[field] = theirs_.snapshot.metadata->at(field);
        if (found == Outcome::Conflict) addFieldConflict(field);
    }

    void mergeList(FieldValues& merged, Field field) {
        MergedList list =
            mergedList(listIn(base_, field), listIn(ours_, field), listIn(theirs_, field));
        merged[field] = std::move(list.items);
        if (list.isConflict) addFieldConflict(field);
    }

    // What later hosts have put beside the record stays as ours has it.
    void planRestOf(const layout::PartKindRow& kind) {
        const auto rest = [&](const MergeSide& side) { return restOf(side, kind); };
        if (outcome(rest) == Outcome::Ours) return;
        const Keys parts = partsOf(ours_, kind);
        addConflict("metadata", parts.empty() ? utf8(kind.name) : *parts.begin(),
                    [](const MergeSide&) { return nullptr; });
    }

    using Element = std::tuple<std::size_t, std::string,
                               std::vector<std::pair<std::string, std::string>>, std::string>;
    // The elements of a metadata part that hold none of the fields.
    static std::vector<Element> restOf(const MergeSide& side, const layout::PartKindRow& kind) {
        std::vector<Element> rest;
        for (const std::string& key : partsOf(side, kind)) {
            bool isWithinField = false;
            for (const auto& element : elementsOf(side, key)) {
                if (element.depth <= 2) isWithinField = element.depth == 2 && isField(element.name);
                if (isWithinField) continue;
                rest.emplace_back(element.depth, element.name, element.attributes, element.text);
            }
        }
        return rest;
    }

    static std::vector<opc::model::XmlElement> elementsOf(const MergeSide& side,
                                                          const std::string& key) {
        return withPackage(*side.file, [&](const Package& package) {
            const auto bytes = readAll(package.getPart(side.partNames.at(key)), kMaxXmlBytes);
            return opc::model::readXmlElements(
                {reinterpret_cast<const char*>(bytes.data()), bytes.size()}, side.file->shown);
        });
    }

    static bool isField(const std::string& element) {
        static constexpr std::array<std::string_view, 7> kProperties = {
            "title", "description", "creator", "version", "modified", "release", "releaseInfo"};
        return std::ranges::find(kProperties, element) != kProperties.end() ||
               std::ranges::any_of(layout::metadataElements(),
                                   [&](const auto& known) { return known.name == element; });
    }

    void planLinks() {
        std::set<std::string> types;
        for (const MergeSide* side : {&base_, &ours_, &theirs_}) {
            for (const auto& [type, targets] : side->targetsByType)
                types.insert(type);
        }
        for (const std::string& type : types) {
            if (settledTypes_.contains(type)) continue;
            const auto targets = [&](const MergeSide& side) { return side.targets(type); };
            const Outcome found = outcome(targets);
            if (found == Outcome::Ours) continue;
            if (found == Outcome::Conflict && isSingle(type)) {
                addLinkConflict(type);
            } else {
                planLinksOf(type);
            }
        }
    }

    void addLinkConflict(const std::string& type) {
        addConflict("relationship", type,
                    [&](const MergeSide& side) { return targetsJson(side.targets(type)); });
    }

    void planLinksOf(const std::string& type) {
        const LinkTargets &base = base_.targets(type), &ours = ours_.targets(type),
                          &theirs = theirs_.targets(type);
        for (const LinkTarget& target : theirs) {
            if (!base.contains(target) && !ours.contains(target)) addedLinks.insert({target, type});
        }
        for (const LinkTarget& target : base) {
            if (!theirs.contains(target) && ours.contains(target))
                removedLinks.insert({target, type});
        }
    }

    void planItems() {
        Keys keys;
        for (const MergeSide* side : {&base_, &ours_, &theirs_}) {
            for (const auto& [key, facts] : side->items)
                keys.insert(key);
        }
        for (const std::string& key : keys) {
            if (!settled_.contains(key)) planItem(key);
        }
    }

    void planItem(const std::string& key) {
        const auto meaning = [&](const MergeSide& side) { return meaningOf(side.find(key)); };
        const Outcome found = outcome(meaning);
        if (found == Outcome::Ours) return;
        if (found == Outcome::Conflict && isCode(key)) return mergeCode();
        if (found == Outcome::Conflict) return addItemConflict(key, "part");
        if (!isPartOrNone(ours_, key) || !isPartOrNone(theirs_, key))
            return addItemConflict(key, "item");
        if (theirs_.find(key) == nullptr) return planDeletion(key);
        if (ours_.find(key) == nullptr && isReplacedByOurs(key)) return;
        takenParts.insert(key);
    }

    // What ours keeps, it keeps with the relationships that lead to it.
    void addItemConflict(const std::string& key, const char* what) {
        if (ours_.find(key) != nullptr) keepLinksTo({key, true});
        const PartFacts* facts = ours_.find(key) != nullptr ? ours_.find(key) : theirs_.find(key);
        addConflict(what, facts->name,
                    [&](const MergeSide& side) { return factsJson(side.find(key)); });
    }

    // If an app has one relationship of a type, it is not theirs then.
    void keepLinksTo(const LinkTarget& target) {
        for (const Link& link : linksTo(removedLinks, target)) {
            removedLinks.erase(link);
            if (!isSingle(link.type)) continue;
            const auto isOfType = [&](const Link& added) { return added.type == link.type; };
            if (std::erase_if(addedLinks, isOfType) > 0) addLinkConflict(link.type);
        }
    }

    void dropWhatNothingLeadsTo() {
        std::erase_if(takenParts, [&](const std::string& key) {
            return ours_.find(key) == nullptr && isReplacedByOurs(key);
        });
    }

    static bool isPartOrNone(const MergeSide& side, const std::string& key) {
        return side.find(key) == nullptr || side.partNames.contains(key);
    }

    // Whether theirs has the part for a relationship that is in conflict, and already named.
    bool isReplacedByOurs(const std::string& key) const {
        return leadsTo(theirs_, key) && !resultLeadsTo(key);
    }

    static bool leadsTo(const MergeSide& side, const std::string& key) {
        return !linksTo(side.links, {key, true}).empty();
    }

    bool resultLeadsTo(const std::string& key) const {
        const LinkTarget target{key, true};
        return !linksTo(addedLinks, target).empty() ||
               linksTo(ours_.links, target).size() > linksTo(removedLinks, target).size();
    }

    // Ours may have come to need what theirs has deleted.
    void planDeletion(const std::string& key) {
        if (resultLeadsTo(key) && !leadsTo(theirs_, key)) return addItemConflict(key, "part");
        deletedParts.insert(key);
    }

    // Theirs may have come to need what ours has deleted.
    void dropLinksToNothing() {
        std::erase_if(addedLinks, [&](const Link& link) {
            const std::string& key = link.target.place;
            if (!link.target.isPart || theirs_.find(key) == nullptr) return false;
            const bool isThere =
                takenParts.contains(key) || (ours_.find(key) && !deletedParts.contains(key));
            if (isThere) return false;
            addLinkConflict(link.type);
            return true;
        });
    }

    // Whether both sides have the part as their code, and with the same type.
    bool isCode(const std::string& key) const {
        const Keys just = {key};
        return partsOf(ours_, layout::kCode) == just && partsOf(theirs_, layout::kCode) == just &&
               ours_.find(key)->contentType == theirs_.find(key)->contentType;
    }

    void mergeCode() {
        const std::string none;
        const auto merged = lines_.merge(base_.snapshot.code ? *base_.snapshot.code : none,
                                         *ours_.snapshot.code, *theirs_.snapshot.code);
        if (merged && merged->text != *ours_.snapshot.code) code = merged->text;
        if (!merged || merged->isConflict) conflicts.push_back(codeConflict(merged.has_value()));
    }

    const MergeSide &base_, &ours_, &theirs_;
    LineMerge& lines_;
    Keys settled_;  // the keys of the parts that hold the metadata, when it is merged by fields
    std::set<std::string> settledTypes_;
};

// Carries out a plan for a copy of ours.
class Application {
public:
    Application(const Plan& plan, const MergeSide& ours, const MergeSide& theirs,
                const FileName& working)
        : plan_(plan), ours_(ours), theirs_(theirs), working_(working) {}

    void run() {
        about(working_, *theirs_.file, [&] { changeParts(); });
        about(working_, [&] { writeContent(); });
    }

private:
    void changeParts() {
        const opc::zippackage::ZipPhysicalPackage zip(working_.path, true);
        Package package(zip);
        package.open(OpenMode::Edit);
        removeLinks(package);
        for (const std::string& key : plan_.deletedParts)
            package.deletePart(ours_.partNames.at(key));
        withPackage(*theirs_.file, [&](const Package& from) {
            for (const std::string& key : plan_.takenParts)
                takePart(package, from, key);
        });
        addLinks(package);
        package.close();
    }

    void removeLinks(Package& package) const {
        if (plan_.removedLinks.empty()) return;
        for (const Relationship& link : package.getRelationships()) {
            if (plan_.removedLinks.contains(linkOf(link))) package.deleteRelationship(link.getID());
        }
    }

    // A relationship keeps its id unless ours uses it.
    void addLinks(Package& package) const {
        if (plan_.addedLinks.empty()) return;
        std::set<ustring> taken;
        for (const Relationship& link : package.getRelationships())
            taken.insert(link.getID());
        for (const Relationship& link : theirs_.relationships) {
            if (!plan_.addedLinks.contains(linkOf(link))) continue;
            const ustring id = taken.contains(link.getID()) ? ustring() : link.getID();
            taken.insert(addLink(package, link, id).getID());
        }
    }

    static Relationship addLink(Package& package, const Relationship& link, const ustring& id) {
        const bool isExternal = link.getTargetMode() == opc::model::TargetMode::External;
        return isExternal
                   ? package.createExternalRelationship(link.getType(), link.getTargetURI(), id)
                   : package.createInternalRelationship(link.getType(), link.getTargetURI(), id);
    }

    void takePart(Package& package, const Package& from, const std::string& key) const {
        const auto part = from.getPart(theirs_.partNames.at(key));
        const auto ours = ours_.partNames.find(key);
        const bool isThere = ours != ours_.partNames.end();
        if (isThere && !(package.getPart(ours->second).getContentType() == part.getContentType()))
            package.deletePart(ours->second);
        if (!package.hasPart(part.getName()))
            package.createPart(part.getName(), part.getContentType(), layout::app::partInfo());
        const auto out = package.getPart(part.getName()).getOutputStream();
        opc::StreamHelper::copyStreamToStream(*part.getInputStream(), *out);
    }

    void writeContent() {
        if (!plan_.code && !plan_.metadata) return;
        requireEditable(working_,
                        {.code = plan_.code.has_value(), .metadata = plan_.metadata.has_value()});
        appserialization::AppFileWriter writer(working_.native(), false);
        if (plan_.code) writer.setKORVALCodeText(fl::i18n::utf8_to_ustring(*plan_.code));
        if (plan_.metadata) {
            FieldValues fields = *plan_.metadata;
            fields.erase(Field::KORVALRelease);
            appserialization::AppMetadata record = recordOf(fields);
            if (plan_.legacyRelease) record.setKORVALRelease(*plan_.legacyRelease);
            writer.setAppMetadata(record);
        }
        writer.close();
    }

    const Plan& plan_;
    const MergeSide &ours_, &theirs_;
    const FileName& working_;
};

void requireUnsigned(const FileName& file, bool isSigned) {
    if (!isSigned) return;
    throw Error(file.shown,
                "is signed, and no signature would be valid after the merge; merge copies from "
                "which \"qzapp edit --drop-signature\" has removed it");
}

bool hasErrors(const FileName& file) {
    return checkFile(file).count(Severity::Error) > 0;
}

// Whether readers could no longer tell which of several parts is meant, for example which screenshot.
bool isMoreAmbiguous(const MergeSide& merged, const MergeSide& ours) {
    return std::ranges::any_of(merged.targetsByType, [&](const auto& link) {
        const auto& [type, targets] = link;
        return isSingle(type) && targets.size() > 1 && ours.targets(type).size() < 2;
    });
}

// Whoever merges does not look at the result.
void requireSound(const FileName& result, const Plan& plan, const MergeSide& ours) {
    const FileName file = hold(result);
    const MergeSide side(file);
    const Snapshot& merged = side.snapshot;
    const bool isMeant =
        !isMoreAmbiguous(side, ours) && (!plan.code || merged.code == plan.code) &&
        (!plan.metadata || std::ranges::all_of(allFields(), [&](Field field) {
            return !isMerged(field) || merged.metadata->at(field) == plan.metadata->at(field);
        }));
    if (isMeant && (!hasErrors(file) || hasErrors(*ours.file))) return;
    throw Error(result.shown,
                "is not written, because a check finds errors in what the merge would give; merge "
                "by hand with \"qzapp diff\", \"extract\" and \"edit\"");
}

std::vector<Conflict> mergePackages(const MergeInput& base, const FileName& ours,
                                    const FileName& theirs, const FileName& working,
                                    LineMerge& lines) {
    const MergeSide baseSide = base ? MergeSide(*base) : MergeSide();
    const MergeSide oursSide(ours), theirsSide(theirs);
    const Plan plan(baseSide, oursSide, theirsSide, lines);
    if (plan.isEmpty()) return plan.conflicts;
    requireUnsigned(ours, oursSide.isSigned);
    requireUnsigned(theirs, theirsSide.isSigned);
    Application(plan, oursSide, theirsSide, working).run();
    requireSound(working, plan, oursSide);
    return plan.conflicts;
}

// The fields that both sides changed differently, when the lines in which they are are in conflict.
void addFieldConflicts(const Snapshot& base, const Snapshot& ours, const Snapshot& theirs,
                       std::vector<Conflict>& conflicts) {
    for (const Field field : allFields()) {
        const auto valueIn = [&](const Snapshot& side) -> std::optional<FieldValue> {
            return side.metadata ? std::optional(side.metadata->at(field)) : std::nullopt;
        };
        const auto json = [&](const Snapshot& side) {
            const auto value = valueIn(side);
            return value ? valueToJson(*value) : ordered_json(nullptr);
        };
        if (outcomeOf(valueIn(base), valueIn(ours), valueIn(theirs)) != Outcome::Conflict) continue;
        conflicts.push_back({"field", nameOf(field), json(base), json(ours), json(theirs)});
    }
}

Snapshot wholeSnapshot(const MergeInput& file) {
    if (!file) return {};
    Snapshot snapshot = takeSnapshot(*file);
    requireWhole(*file, snapshot);
    return snapshot;
}

std::vector<Conflict> mergeTexts(const MergeInput& base, const FileName& ours,
                                 const FileName& theirs, fl::filesystem::FileDescriptor& working,
                                 LineMerge& lines) {
    const Snapshot baseApp = wholeSnapshot(base), oursApp = wholeSnapshot(ours),
                   theirsApp = wholeSnapshot(theirs);
    const std::string none;
    const auto merged =
        lines.merge(baseApp.code ? *baseApp.code : none, *oursApp.code, *theirsApp.code);
    if (merged) {
        about(ours, [&] {
            working.truncate(0);
            working.writeAt(std::as_bytes(std::span(merged->text)), 0);
        });
        if (!merged->isConflict) return {};
    }
    std::vector<Conflict> conflicts = {codeConflict(merged.has_value())};
    addFieldConflicts(baseApp, oursApp, theirsApp, conflicts);
    return conflicts;
}

}  // namespace

std::vector<Conflict> mergeApps(const MergeInput& base, const FileName& ours,
                                const FileName& theirs, Transaction& working, LineMerge& lines) {
    // Without a change on one side, the other side's file is the result as it is, signatures included.
    const bool takesTheirs = base && haveSameContent(*base, ours);
    copyBytes(takesTheirs ? theirs : ours, working.file());
    if (takesTheirs || haveSameContent(ours, theirs) || (base && haveSameContent(*base, theirs)))
        return {};
    return formOf(ours) == Form::Packaged
               ? mergePackages(base, ours, theirs, working.workingFile(), lines)
               : mergeTexts(base, ours, theirs, working.file(), lines);
}

}  // namespace qzapp
