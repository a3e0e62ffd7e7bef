#include <fmt/format.h>

#include <cstdint>

#include "tools/qzapp/Checks.hpp"
#include "tools/qzapp/Display.hpp"

namespace qzapp {
namespace {

using opc::zip::LostItem;
using opc::zip::ZipItem;

void checkItem(const PackageView& package, const ViewedItem& item, Findings& findings) {
    if (!item.fault.empty()) {
        findings.add("item-damaged", item.shownName, item.fault, repairFix(package.file));
    }
    if (&item == package.typesItem || item.name) return;
    if (item.item->isDirectory()) {
        findings.add("item-folder", item.shownName, "a folder, which no package reader looks at",
                     "zip without folders (zip -D)");
    } else {
        findings.add("item-name", item.shownName,
                     "no part, since its name " + item.nameFault + "; readers pass it over",
                     "rename it, or remove it from the zip file");
    }
}

void checkGaps(const PackageView& package, Findings& findings) {
    std::uint64_t end = 0, gaps = 0;
    for (const ViewedItem& viewed : package.items) {
        const ZipItem& item = *viewed.item;
        if (item.headerOffset > end) gaps += item.headerOffset - end;
        end = item.endOffset;
    }
    if (gaps == 0) return;
    findings.add("zip-gap", "", fmt::format("{} that belong to no item", byteCount(gaps)),
                 repairFix(package.file));
}

}  // namespace

std::string repairFix(const FileName& file) {
    const std::string& name = file.shown;
    const std::size_t folder = name.rfind('/') + 1;  // 0 when there is none
    const std::size_t dot = name.find_last_of('.');
    const bool hasExtension = dot != std::string::npos && dot > folder;
    const std::string stem = hasExtension ? name.substr(0, dot) : name;
    const std::string extension = hasExtension ? name.substr(dot) : "";
    const FileName out{stem + "-repaired" + extension, {}};
    return fmt::format("get the file again, or \"qzapp check --repair {} {}\"", shellWord(out),
                       shellWord(file));
}

void checkContainer(const PackageView& package, Findings& findings) {
    if (!package.zipRefusal.empty()) {
        findings.add("zip-refused", "", package.zipRefusal, repairFix(package.file));
    }
    for (const LostItem& lost : package.lost)
        findings.add("item-lost", lost.name, lost.reason, "get the file again");
    for (const ViewedItem& item : package.items)
        checkItem(package, item, findings);
    if (package.zipRefusal.empty()) checkGaps(package, findings);
}

}  // namespace qzapp
