#include "platform/opc/src/salvage/Salvage.hpp"

#include "platform/opc/src/salvage/ArchivesWithin.hpp"
#include "platform/opc/src/salvage/DirectorySalvage.hpp"
#include "platform/opc/src/salvage/Loss.hpp"
#include "platform/opc/src/salvage/NameConflicts.hpp"
#include "platform/opc/src/salvage/RecordSalvage.hpp"

#include <algorithm>
#include <set>
#include <string>
#include <utility>

namespace opc::zip {

namespace {

// Gives items whose name is in conflict with another one their other name, if they have one.
// Returns whether there are any.
bool useOtherNames(std::vector<ZipItem>& items, const NameConflicts& conflicts) {
    bool isAny = false;
    for (ZipItem& item : items) {
        if (item.otherName.empty() || !conflicts.contains(&item)) continue;
        std::swap(item.name, item.otherName);
        isAny = true;
    }
    return isAny;
}

void dropConflicts(Salvaged& found, std::span<const std::string> expected) {
    auto conflicts = nameConflicts(found.items, expected);
    if (useOtherNames(found.items, conflicts)) conflicts = nameConflicts(found.items, expected);
    std::erase_if(found.items, [&](const ZipItem& item) {
        const auto conflict = conflicts.find(&item);
        if (conflict == conflicts.end()) return false;
        found.lost.push_back({item.displayName(), textOf(conflict->second)});
        return true;
    });
}

// Whether each item of one list is also in the other.
bool areIn(const std::vector<ZipItem>& some, const std::vector<ZipItem>& all) {
    std::set<std::pair<std::string, Content>> known;
    for (const ZipItem& item : all)
        known.emplace(item.name, Content(item));
    return std::ranges::all_of(some, [&](const ZipItem& item) {
        return known.contains({item.name, Content(item)});
    });
}

}  // namespace

bool isConversionOf(const Salvaged& before, const Salvaged& found,
                    const UnconvertedFile& unconverted) {
    return before.isExact || (before.items.size() > found.items.size() &&
                              !unconverted.hasBareFeeds() && areIn(found.items, before.items));
}

Salvaged salvageItems(const SalvageSource& source, std::span<const std::string> expected) {
    ArchivesWithin archives = findArchives(source);
    Salvaged found = archives.own ? salvageByDirectory(source, *archives.own)
                                  : salvageByRecords(source, std::move(archives.others));
    found.isExact = archives.own && archives.own->isExact;
    dropConflicts(found, expected);
    std::ranges::sort(found.items, {}, &ZipItem::dataOffset);
    return found;
}

}  // namespace opc::zip
