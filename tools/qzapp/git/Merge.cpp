#include "tools/qzapp/git/Merge.hpp"

#include <appserialization/AppFileWriter.hpp>
#include <appserialization/AppMetadata.hpp>
#include <appserialization/ustring.hpp>
#include <fl/FileDescriptor.hpp>
#include <fl/i18n.hpp>
#include <nlohmann/json.hpp>
#include <opc/Package.hpp>
#include <opc/PartName.hpp>
#include <opc/Relationship.hpp>
#include <opc/Streams.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <algorithm>
#include <map>
#include <set>
#include <span>
#include <string>
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

#include "app/check/Checks.hpp"
#include "app/check/Findings.hpp"
#include "package/Layout.hpp"

#include "tools/qzapp/git/LineMerge.hpp"
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

// Carries out a plan for a copy of ours.
class Application {
public:
    Application(const MergePlan& plan, const MergeSide& ours, const MergeSide& theirs,
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
            about(working_, *theirs_.file, [&] {
                for (const std::string& key : plan_.takenParts)
                    takePart(package, from, key);
            });
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
            package.createPart(part.getName(), part.getContentType(),
                               appserialization::layout::partInfo());
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

    const MergePlan& plan_;
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

// Whether readers could no longer tell which of several parts is meant, for example which
// screenshot.
bool isMoreAmbiguous(const MergeSide& merged, const MergeSide& ours) {
    return std::ranges::any_of(merged.targetsByType, [&](const auto& link) {
        const auto& [type, targets] = link;
        return isSingle(type) && targets.size() > 1 && ours.targets(type).size() < 2;
    });
}

// Whoever merges does not look at the result.
void requireSound(const FileName& result, const MergePlan& plan, const MergeSide& ours) {
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
    const MergePlan plan = planMerge(baseSide, oursSide, theirsSide, lines);
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
                                 const FileName& theirs, Transaction& transaction,
                                 LineMerge& lines) {
    fl::filesystem::FileDescriptor& working = transaction.file();
    const Snapshot baseApp = wholeSnapshot(base), oursApp = wholeSnapshot(ours),
                   theirsApp = wholeSnapshot(theirs);
    const std::string none;
    const auto merged =
        lines.merge(baseApp.code ? *baseApp.code : none, *oursApp.code, *theirsApp.code);
    if (merged) {
        about(transaction.workingFile(), [&] {
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
    // Without a change on one side, the other side's file is the result as it is, signatures
    // included.
    const bool takesTheirs = base && haveSameContent(*base, ours);
    const FileName& start = takesTheirs ? theirs : ours;
    about(working.workingFile(), [&] { copyBytes(start, working.file()); });
    if (takesTheirs || haveSameContent(ours, theirs) || (base && haveSameContent(*base, theirs))) {
        wholeSnapshot(start);
        return {};
    }
    return formOf(ours) == Form::Packaged
               ? mergePackages(base, ours, theirs, working.workingFile(), lines)
               : mergeTexts(base, ours, theirs, working, lines);
}

}  // namespace qzapp
