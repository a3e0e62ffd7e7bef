#include "tools/qzapp/git/MergePlan.hpp"

#include <fmt/format.h>
#include <fl/i18n.hpp>
#include <foundation/ustring.hpp>
#include <opc/Limits.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>
#include <opc/PartKind.hpp>
#include <opc/PartName.hpp>
#include <opc/XmlElements.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>
#include <variant>

#include "app/MetadataJson.hpp"
#include "app/WithPackage.hpp"
#include "app/check/AppLayout.hpp"
#include "tools/qzapp/git/ThreeWay.hpp"
#include "tools/qzapp/verbs/Snapshot.hpp"

namespace qzapp {
namespace {

using nlohmann::ordered_json;
using opc::model::Package;
using opc::model::PackageHelper;
using opc::model::PartName;
using Keys = MergePlan::Keys;

std::string utf8(foundation::ustring_view text) {
    return fl::i18n::ustring_to_utf8(text);
}

// The types of the parts that hold the metadata record.
constexpr std::array kMetadataKinds = {&layout::kMetadata, &layout::kCoreProperties,
                                       &layout::kHostProperties};

ordered_json factsJson(const PartFacts* facts) {
    if (facts == nullptr) return nullptr;
    return {{"contentType", facts->contentType}, {"size", facts->size}, {"sha256", facts->sha256}};
}

ordered_json targetsJson(const MergeSide& side, const std::string& type) {
    ordered_json places = ordered_json::array();
    for (const LinkTarget& target : side.targets(type))
        places.push_back(side.shownPlace(target));
    return places;
}

// What counts of an item. Nothing if there is none.
using Meaning = std::optional<std::pair<std::string, std::string>>;
Meaning meaningOf(const PartFacts* facts) {
    if (facts == nullptr) return std::nullopt;
    return std::pair(facts->contentType, facts->sha256OfMeaning);
}

// Finds out what to do to make the result of ours, and what is in conflict. Changes nothing.
class Planner {
public:
    Planner(const MergeSide& base, const MergeSide& ours, const MergeSide& theirs, LineMerge& lines)
        : base_(base), ours_(ours), theirs_(theirs), lines_(lines) {}

    MergePlan plan() {
        planMetadata();
        planLinks();
        planItems();
        dropWhatNothingLeadsTo();
        dropWhatClashes();
        keepWhatPartsNeed();
        dropRelationshipsOfNothing();
        dropLinksToNothing();
        return std::move(plan_);
    }

private:
    template <class Get>
    auto outcome(Get get) const {
        return outcomeOf(get(base_), get(ours_), get(theirs_));
    }
    template <class Get>
    void addConflict(const char* what, const std::string& name, Get get) {
        plan_.conflicts.push_back({what, name, get(base_), get(ours_), get(theirs_)});
    }

    static Keys partsOf(const MergeSide& side, const layout::PartKindRow& kind) {
        Keys keys;
        for (const LinkTarget& target : side.targets(utf8(kind.relationshipType))) {
            if (target.isPart && side.find(target.place) != nullptr) keys.insert(target.place);
        }
        return keys;
    }

    // The record is in several parts, which one side or the other has changed as a whole; or else
    // it is merged field by field.
    void planMetadata() {
        const auto meaning = [](const MergeSide& side) {
            std::vector<std::pair<std::string, Meaning>> all;
            for (const auto* kind : kMetadataKinds) {
                for (const std::string& key : partsOf(side, *kind))
                    all.emplace_back(key, meaningOf(side.find(key)));
            }
            return all;
        };
        if (outcome(meaning) != Outcome::Conflict || !haveSameKindsOfMetadata()) return;
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

    // The fields of a part that a side does not have would be cleared.
    bool haveSameKindsOfMetadata() const {
        return std::ranges::all_of(kMetadataKinds, [&](const auto* kind) {
            return partsOf(ours_, *kind).empty() == partsOf(theirs_, *kind).empty();
        });
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
        if (merged != *ours_.snapshot.metadata || plan_.legacyRelease != ours_.legacyRelease)
            plan_.metadata = std::move(merged);
    }

    void mergeLegacyRelease() {
        const Outcome found = outcome([](const MergeSide& side) { return side.legacyRelease; });
        plan_.legacyRelease =
            found == Outcome::Theirs ? theirs_.legacyRelease : ours_.legacyRelease;
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

    // What later hosts have put beside the record stays as ours has it, and so does the type.
    void planRestOf(const layout::PartKindRow& kind) {
        const auto rest = [&](const MergeSide& side) {
            std::set<std::string> types;
            for (const std::string& key : partsOf(side, kind))
                types.insert(side.find(key)->contentType);
            return std::pair(std::move(types), restOf(side, kind).beside);
        };
        if (outcome(rest) == Outcome::Ours && !losesAttributes(kind)) return;
        const Keys parts = partsOf(ours_, kind);
        const std::string name = parts.empty() ? utf8(kind.name) : ours_.find(*parts.begin())->name;
        addConflict("metadata", name, [&](const MergeSide& side) {
            const Rest found = restOf(side, kind);
            ordered_json elements = ordered_json::array();
            for (const Element& element : found.beside) {
                if (element.depth > 1) elements.push_back(element.name + ": " + element.text);
            }
            for (const auto& [place, all] : found.ofFields) {
                for (const Attributes& attributes : all) {
                    for (const auto& [attribute, value] : attributes)
                        elements.push_back(fmt::format("{} {}={}", place, attribute, value));
                }
            }
            return elements;
        });
    }

    // Whether theirs has attributes on a field that the result would not have: an edit writes none
    // on a text that it changes or on a new item, and keeps those of ours elsewhere.
    bool losesAttributes(const layout::PartKindRow& kind) const {
        const bool isOfRecord = kind.relationshipType == layout::kMetadata.relationshipType;
        const Rest base = restOf(base_, kind), ours = restOf(ours_, kind);
        return std::ranges::any_of(restOf(theirs_, kind).ofFields, [&](const auto& each) {
            const auto& [place, theirs] = each;
            const auto isAny = [](const std::vector<Attributes>& all) {
                return !std::ranges::all_of(all, &Attributes::empty);
            };
            if (theirs == ours.of(place) || theirs == base.of(place))
                return isAny(theirs) && isOfRecord && isTakenText(place);
            return isAny(theirs) || isAny(ours.of(place));
        });
    }

    bool isTakenText(const std::string& element) const {
        const auto* const known = knownElement(element);
        if (known == nullptr || !known->item.empty()) return false;
        const auto value = [&](const MergeSide& side) { return valueIn(side, known->field); };
        return outcome(value) == Outcome::Theirs;
    }

    using Attributes = std::vector<std::pair<std::string, std::string>>;
    struct Element {
        std::size_t depth;
        std::string name;
        Attributes attributes;
        std::string text;
        bool operator==(const Element&) const = default;
    };
    // What the parts of a kind hold but the values of the fields.
    struct Rest {
        std::vector<Element> beside;
        // The attributes that fields have in the file, by the name of the field's element or, for
        // an item, by those of the list and the item and its value. Several items may have one
        // value.
        std::map<std::string, std::vector<Attributes>> ofFields;

        std::vector<Attributes> of(const std::string& place) const {
            const auto found = ofFields.find(place);
            return found == ofFields.end() ? std::vector<Attributes>() : found->second;
        }
    };
    static Rest restOf(const MergeSide& side, const layout::PartKindRow& kind) {
        Rest rest;
        for (const std::string& key : partsOf(side, kind)) {
            std::string field;
            for (auto& element : elementsOf(side, key)) {
                if (element.depth <= 2)
                    field = element.depth == 2 && isField(element.name) ? element.name : "";
                if (field.empty()) {
                    rest.beside.push_back({element.depth, std::move(element.name),
                                           std::move(element.attributes), std::move(element.text)});
                } else if (!isWrittenBySaves(field)) {
                    addAttributes(field, element, rest);
                }
            }
        }
        return rest;
    }

    static void addAttributes(const std::string& field, const opc::model::XmlElement& element,
                              Rest& rest) {
        std::string place = field;
        Attributes attributes = element.attributes;
        if (element.depth > 2) {
            const auto* const list = knownElement(field);
            if (list == nullptr || element.depth > 3 || element.name != list->item) return;
            const std::string* const value = element.attribute(list->attribute);
            place += fmt::format(" {} \"{}\"", element.name, value == nullptr ? "" : *value);
            std::erase_if(attributes,
                          [&](const auto& each) { return each.first == list->attribute; });
        }
        std::ranges::sort(attributes);
        rest.ofFields[place].push_back(std::move(attributes));
    }

    static bool isWrittenBySaves(std::string_view element) {
        return element == "version" || element == "modified" || element == "release" ||
               element == "releaseInfo";
    }

    static std::vector<opc::model::XmlElement> elementsOf(const MergeSide& side,
                                                          const std::string& key) {
        return withPackage(*side.file, [&](const Package& package) {
            const auto bytes = readAll(package.getPart(side.partNames.at(key)), opc::kMaxXmlBytes);
            return opc::model::readXmlElements(
                {reinterpret_cast<const char*>(bytes.data()), bytes.size()}, side.file->shown);
        });
    }

    static bool isField(const std::string& element) {
        static constexpr std::array<std::string_view, 7> kProperties = {
            "title", "description", "creator", "version", "modified", "release", "releaseInfo"};
        return std::ranges::find(kProperties, element) != kProperties.end() ||
               knownElement(element) != nullptr;
    }

    // Null if the metadata part has no such element.
    static const layout::MetadataElement* knownElement(std::string_view name) {
        const auto& all = layout::metadataElements();
        const auto known = std::ranges::find(all, name, &layout::MetadataElement::name);
        return known == all.end() ? nullptr : &*known;
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
                    [&](const MergeSide& side) { return targetsJson(side, type); });
    }

    void planLinksOf(const std::string& type) {
        const LinkTargets &base = base_.targets(type), &ours = ours_.targets(type),
                          &theirs = theirs_.targets(type);
        for (const LinkTarget& target : theirs) {
            if (!base.contains(target) && !ours.contains(target))
                plan_.addedLinks.insert({target, type});
        }
        for (const LinkTarget& target : base) {
            if (!theirs.contains(target) && ours.contains(target))
                plan_.removedLinks.insert({target, type});
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
        plan_.takenParts.insert(key);
    }

    // What ours keeps, it keeps with the relationships that lead to it.
    void addItemConflict(const std::string& key, const char* what) {
        if (ours_.find(key) != nullptr) keepLinksTo({key, true});
        const PartFacts* facts = ours_.find(key) != nullptr ? ours_.find(key) : theirs_.find(key);
        addConflict(what, facts->name,
                    [&](const MergeSide& side) { return factsJson(side.find(key)); });
    }

    // An app has one relationship of each of its types, so one that ours keeps excludes theirs.
    void keepLinksTo(const LinkTarget& target) {
        for (const Link& link : linksTo(plan_.removedLinks, target)) {
            plan_.removedLinks.erase(link);
            if (!isSingle(link.type)) continue;
            const auto isOfType = [&](const Link& added) { return added.type == link.type; };
            if (std::erase_if(plan_.addedLinks, isOfType) > 0) addLinkConflict(link.type);
        }
    }

    void dropWhatNothingLeadsTo() {
        std::erase_if(plan_.takenParts, [&](const std::string& key) {
            return ours_.find(key) == nullptr && isReplacedByOurs(key);
        });
    }

    bool isInResult(const std::string& key) const {
        return plan_.takenParts.contains(key) ||
               (ours_.find(key) != nullptr && !plan_.deletedParts.contains(key));
    }

    // No part may have the name of a folder in which another one is.
    void dropWhatClashes() {
        dropTaken([&](const std::string& key) {
            if (ours_.find(key) != nullptr) return false;
            for (std::size_t slash = key.find('/', 1); slash != std::string::npos;
                 slash = key.find('/', slash + 1)) {
                if (isInResult(key.substr(0, slash))) return true;
            }
            const auto below = ours_.items.lower_bound(key + "/");
            return below != ours_.items.end() && below->first.starts_with(key + "/") &&
                   isInResult(below->first);
        });
    }

    template <class Condition>
    void dropTaken(Condition condition) {
        Keys dropped;
        std::ranges::copy_if(plan_.takenParts, std::inserter(dropped, dropped.end()), condition);
        for (const std::string& key : dropped) {
            plan_.takenParts.erase(key);
            addItemConflict(key, "part");
        }
    }

    // The relationships of a part of ours may lead to what theirs has deleted.
    void keepWhatPartsNeed() {
        std::vector<std::string> kept;
        std::ranges::copy_if(plan_.deletedParts, std::back_inserter(kept),
                             [&](const std::string& key) { return isNeededByPart(key); });
        while (!kept.empty()) {
            const std::string key = std::move(kept.back());
            kept.pop_back();
            if (plan_.deletedParts.erase(key) == 0) continue;
            addItemConflict(key, "part");
            kept.push_back(relationshipsOf(key));
            std::ranges::copy(ours_.targetsOfPart(key), std::back_inserter(kept));
        }
    }

    bool isNeededByPart(const std::string& key) const {
        if (isKept(relationshipsOf(key)) && theirs_.find(relationshipsOf(key)) == nullptr)
            return true;
        return std::ranges::any_of(ours_.partsLeadingTo(key), [&](const std::string& source) {
            return isKept(source) && isKept(relationshipsOf(source)) &&
                   !theirs_.partsLeadingTo(key).contains(source);
        });
    }

    bool isKept(const std::string& key) const {
        return isInResult(key) && !plan_.takenParts.contains(key);
    }

    // The relationships of a part of theirs may be those of a part that ours has deleted, or lead
    // to one.
    void dropRelationshipsOfNothing() {
        dropTaken([&](const std::string& key) {
            const auto source = sourceOf(key);
            if (!source) return false;
            const auto isLost = [&](const std::string& part) {
                return theirs_.find(part) != nullptr && !isInResult(part);
            };
            return isLost(*source) || std::ranges::any_of(theirs_.targetsOfPart(*source), isLost);
        });
    }

    // The key of the part that holds the relationships of a part.
    std::string relationshipsOf(const std::string& key) const {
        const auto name = nameOfPart(key);
        return name ? opc::names::relationshipsOf(*name).key() : std::string();
    }

    std::optional<std::string> sourceOf(const std::string& relationships) const {
        const auto name = nameOfPart(relationships);
        if (!name || !opc::names::isRelationshipsName(*name)) return std::nullopt;
        const auto source = opc::names::sourceOf(*name);
        return source ? std::optional(source->key()) : std::nullopt;
    }

    std::optional<PartName> nameOfPart(const std::string& key) const {
        for (const MergeSide* side : {&ours_, &theirs_}) {
            const auto found = side->partNames.find(key);
            if (found != side->partNames.end()) return found->second;
        }
        return std::nullopt;
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
        return !linksTo(plan_.addedLinks, target).empty() ||
               linksTo(ours_.links, target).size() > linksTo(plan_.removedLinks, target).size();
    }

    // A relationship of ours may lead to what theirs has deleted.
    void planDeletion(const std::string& key) {
        if (resultLeadsTo(key) && !leadsTo(theirs_, key)) return addItemConflict(key, "part");
        plan_.deletedParts.insert(key);
    }

    // A relationship of theirs may lead to what ours has deleted.
    void dropLinksToNothing() {
        std::set<std::string> types;
        std::erase_if(plan_.addedLinks, [&](const Link& link) {
            const std::string& key = link.target.place;
            if (!link.target.isPart || theirs_.find(key) == nullptr || isInResult(key))
                return false;
            types.insert(link.type);
            return true;
        });
        for (const std::string& type : types)
            addLinkConflict(type);
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
        if (merged && merged->text != *ours_.snapshot.code) plan_.code = merged->text;
        if (!merged || merged->isConflict)
            plan_.conflicts.push_back(codeConflict(merged.has_value()));
    }

    const MergeSide &base_, &ours_, &theirs_;
    LineMerge& lines_;
    Keys settled_;  // the keys of the parts that hold the metadata, when it is merged by fields
    std::set<std::string> settledTypes_;
    MergePlan plan_;
};

}  // namespace

bool MergePlan::isEmpty() const {
    return takenParts.empty() && deletedParts.empty() && addedLinks.empty() &&
           removedLinks.empty() && !code && !metadata;
}

Conflict codeConflict(bool hasMarks) {
    return {.what = hasMarks ? "lines" : "text", .name = "code"};
}

bool isSingle(const std::string& type) {
    const foundation::ustring text = fl::i18n::utf8_to_ustring(type);
    return layout::isAppRelationship(text) || text == PackageHelper::getThumbnailRelationshipType();
}

bool isMerged(Field field) {
    return field != Field::KORVALRelease;
}

MergePlan planMerge(const MergeSide& base, const MergeSide& ours, const MergeSide& theirs,
                    LineMerge& lines) {
    return Planner(base, ours, theirs, lines).plan();
}

}  // namespace qzapp
