#include <fmt/format.h>
#include <opc/FoundPackage.hpp>
#include <opc/PackageNames.hpp>
#include <opc/ZipArchive.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "app/VisibleText.hpp"
#include "app/check/Checks.hpp"
#include "app/check/Findings.hpp"
#include "app/check/PackageView.hpp"

namespace qzapp {
namespace {

using opc::model::FoundItem;
using opc::zip::LostItem;
using opc::zip::ZipRule;

RuleName ruleOf(std::optional<ZipRule> rule) {
    if (!rule) return "not-readable";
    switch (*rule) {
        case ZipRule::End:
            return "zip-end";
        case ZipRule::Directory:
            return "zip-directory";
        case ZipRule::Item:
            return "zip-item";
        case ZipRule::Hidden:
            return "zip-hidden";
        case ZipRule::Names:
            return "zip-names";
        case ZipRule::Unsupported:
            return "zip-unsupported";
    }
    return "not-readable";
}

void checkRefusalAndDamage(const PackageView& package, Findings& findings) {
    if (!package.zipRefusal.empty()) {
        const char* cause = package.archive->isConverted()
                                ? "a transfer as text put a carriage return in front of each line "
                                  "feed: "
                                : "";
        findings.add(ruleOf(package.brokenRule), "", cause + package.zipRefusal,
                     repairFix(package));
    }
    for (const LostItem& lost : package.lost)
        findings.add("item-lost", lost.name, lost.reason, "get the file again");
    for (const FoundItem& item : package.items) {
        if (item.fault.empty()) continue;
        findings.add("item-damaged", item.shownName, item.fault, repairFix(package));
    }
}

void checkItem(const PackageView& package, const FoundItem& item, Findings& findings) {
    if (item.hasStaleSlices) {
        findings.add("item-slices", item.shownName,
                     "its table of slices is of other data, which another program has replaced; "
                     "the content is whole, but is read by one thread only",
                     "write it anew: " + repairCommand(package.file));
    }
    if (&item == package.typesItem || item.name) return;
    if (item.item->isDirectory()) {
        findings.add("item-folder", item.shownName, "a folder item, which package readers ignore",
                     "zip without folders (zip -D)");
    } else {
        findings.add("item-name", item.shownName,
                     "not a part, because its name " + item.nameFault + "; readers ignore it",
                     "rename it, or remove it from the zip file");
    }
}

// The end offset of a salvaged item is that of its data, not of the data descriptor that may
// follow.
constexpr std::uint64_t kLargestDescriptor = 24;

// Not if items are lost: their bytes would count as gaps.
void checkGaps(const PackageView& package, Findings& findings) {
    if (!package.lost.empty()) return;
    std::uint64_t end = 0, gaps = 0;
    const opc::zip::ArchiveBounds& bounds = package.archive->bounds();
    const bool isSalvaged = bounds.fileEnd == 0;
    const auto goOn = [&](std::uint64_t start, std::uint64_t itsEnd) {
        const std::uint64_t spare = isSalvaged && end != 0 ? kLargestDescriptor : 0;
        if (start > end + spare) gaps += start - end;
        end = itsEnd;
    };
    for (const FoundItem& item : package.items)
        goOn(item.item->headerOffset, item.item->endOffset);
    if (!isSalvaged) goOn(bounds.directory, bounds.fileEnd);
    if (gaps == 0) return;
    findings.add("zip-gap", "", fmt::format("{} that belong to no item", byteCount(gaps)),
                 repairFix(package));
}

void checkBehindEnd(const PackageView& package, Findings& findings) {
    const std::uint64_t size = package.archive->stamp().size;
    const std::uint64_t end = package.archive->bounds().fileEnd;
    if (end == 0 || end == size) return;
    findings.add("zip-behind", "",
                 fmt::format("{} after the end of the zip file, from offset {}; a save drops them",
                             byteCount(size - end), end),
                 repairFix(package));
}

}  // namespace

FileName lowerCaseName(const FileName& file) {
    const std::string extension = shownExtension(Form::Packaged);
    std::string name = file.shown;
    if (!isAppName(file) || file.isStream) return file;
    // What messages call the file need not be its name.
    const bool isShown =
        name.size() > extension.size() && name[name.size() - extension.size()] == extension.front();
    if (!isShown) return file;
    name.replace(name.size() - extension.size(), extension.size(), extension);
    return {name, {}};
}

FileName repairedName(const FileName& file) {
    if (file.isStream) return {"OUT", {}};
    const std::string& name = file.shown;
    const std::size_t folder = name.rfind('/') + 1;  // 0 when there is none
    const std::size_t dot = name.find_last_of('.');
    const bool hasExtension = dot != std::string::npos && dot >= folder;
    const std::string stem = hasExtension ? name.substr(0, dot) : name;
    const std::string extension = hasExtension ? lowerCaseName(file).shown.substr(dot) : "";
    const char* const mark =
        stem.size() > folder ? "-repaired" : "repaired";  // "-" begins an option
    return {stem + mark + extension, {}};
}

std::string repairCommand(const FileName& file) {
    return fmt::format("qzapp check --repair {} {}", shellWord(repairedName(file)),
                       shellWord(file));
}

std::string repairFix(const PackageView& package) {
    if (!package.isRepairable) return "choose another file, or get this one again";
    return "get the file again, or: " + repairCommand(package.file);
}

bool isOfAnotherKind(const PackageView& package) {
    return !package.isRepairable && (package.zipRefusal.empty() || !package.items.empty());
}

void checkOtherZip(const PackageView& package, Findings& findings) {
    checkRefusalAndDamage(package, findings);
    // "qzapp items" refuses what readers refuse.
    const auto see = [&](const char* which) {
        return package.zipRefusal.empty() ? fmt::format("see what {} holds with: qzapp items {}",
                                                        which, shellWord(package.file))
                                          : "";
    };
    if (isAppName(package.file)) {
        const std::string further = see("this one");
        findings.add("app-missing", "",
                     "holds nothing of an app: no model, code, metadata or screenshot",
                     "choose another file" + (further.empty() ? "" : "; " + further));
    } else {
        const auto types = opc::names::kContentTypesItem;
        findings.add("types-missing", std::string(types),
                     fmt::format("not a package: the zip file holds no \"{}\"", types), see("it"));
    }
}

void checkContainer(const PackageView& package, Findings& findings) {
    checkRefusalAndDamage(package, findings);
    for (const FoundItem& item : package.items)
        checkItem(package, item, findings);
    checkGaps(package, findings);
    checkBehindEnd(package, findings);
}

}  // namespace qzapp
