#include "platform/opc/src/salvage/NameConflicts.hpp"

#include "platform/opc/src/zip/NameIndex.hpp"

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <utility>

namespace opc::zip {

namespace {

using Names = std::set<std::string, FoldedLess>;
enum class Rank { Expected, Plain, Odd };

Rank rankOf(const std::string& name, std::span<const std::string> expected) {
    if (std::ranges::find(expected, name) != expected.end()) return Rank::Expected;
    const bool isOdd = mayResolve(name) || name.find('\\') != std::string::npos;
    return isOdd ? Rank::Odd : Rank::Plain;
}

// The names under which some reader finds the item.
Names namesOf(const ZipItem& item) {
    Names names = {item.name};
    if (mayResolve(item.name)) {
        names.insert(resolvedName(item.name));
        names.insert(resolvedName(item.displayName()));
    }
    return names;
}

std::optional<Loss> conflictOf(const Names& names, const Names& known, const Names& asFolders) {
    for (const std::string& name : names) {
        if (known.contains(name)) return Loss::SameName;
        // In FoldedLess order, what is in a folder directly follows the folder's name.
        const auto next = asFolders.lower_bound(name);
        if (next != asFolders.end() && isInFolder(*next, name)) return Loss::IsFolder;
        if (next != asFolders.begin() && isInFolder(name, *std::prev(next))) return Loss::InItem;
    }
    return std::nullopt;
}

}  // namespace

std::map<const ZipItem*, Loss> nameConflicts(const std::vector<ZipItem>& items,
                                             std::span<const std::string> expected) {
    std::vector<std::pair<Rank, const ZipItem*>> order;
    for (const ZipItem& item : items)
        order.emplace_back(rankOf(item.name, expected), &item);
    std::ranges::stable_sort(order, {}, &std::pair<Rank, const ZipItem*>::first);
    Names known, knownAsExpected, folders;
    std::map<const ZipItem*, Loss> conflicts;
    for (const auto& [rank, item] : order) {
        const bool isNew = !known.contains(item->name) && !folders.contains(item->name);
        if (isNew && item->isDirectory()) {
            folders.insert(item->name);
            continue;
        }
        Names names = namesOf(*item);
        const auto loss =
            isNew ? conflictOf(names, known, rank == Rank::Odd ? known : knownAsExpected)
                  : std::optional(Loss::SameName);
        if (loss) {
            conflicts.emplace(item, *loss);
            continue;
        }
        if (rank == Rank::Expected) knownAsExpected.insert(names.begin(), names.end());
        known.merge(names);
    }
    return conflicts;
}

}  // namespace opc::zip
