#include "platform/opc/src/zip/NameIndex.hpp"

#include <foundation/Shown.hpp>

#include "platform/opc/src/zip/ZipError.hpp"

#include <algorithm>
#include <utility>

namespace opc::zip {

namespace {

[[noreturn]] void refuseSameNames(const fl::filesystem::path& file, const ZipItem& one,
                                  const ZipItem& other) {
    refuseItem(ZipRule::Names, file, one.displayName(),
               "there is a second item of this name, \"" + foundation::shown(other.displayName()) +
                   "\": readers could see two different packages; remove one of them");
}

}  // namespace

NameIndex::NameIndex(const std::vector<ZipItem>& items, const fl::filesystem::path& file) {
    // Folded once, so that comparing is comparing memory. Sorted rather than hashed: names can be
    // chosen so that hashes collide.
    std::size_t size = 0;
    for (const ZipItem& item : items)
        size += item.name.size();
    std::string folded;
    folded.reserve(size);
    std::vector<std::pair<std::string_view, const ZipItem*>> order;
    order.reserve(items.size());
    for (const ZipItem& item : items) {
        const std::size_t start = folded.size();
        for (const char c : item.name)
            folded += static_cast<char>(foldedByte(c));
        order.emplace_back(std::string_view(folded).substr(start), &item);
    }
    std::ranges::sort(order);
    byName_.reserve(order.size());
    for (const auto& [name, item] : order)
        byName_.push_back(item);
    const auto same = std::ranges::adjacent_find(order, {}, &decltype(order)::value_type::first);
    if (same != order.end()) refuseSameNames(file, *same[0].second, *same[1].second);
}

void NameIndex::addResolvedNames(const fl::filesystem::path& file) {
    for (const ZipItem* const item : byName_) {
        if (!mayResolve(item->name)) continue;
        const auto [found, isNew] = byResolvedName_.try_emplace(resolvedName(item->name), item);
        if (!isNew) refuseSameNames(file, *found->second, *item);
    }
    for (const auto& [name, item] : byResolvedName_) {
        const ZipItem* const other = find(name);
        if (other && other != item) refuseSameNames(file, *item, *other);
    }
}

const ZipItem* NameIndex::find(std::string_view name) const noexcept {
    const auto at = std::lower_bound(byName_.begin(), byName_.end(), name,
                                     [](const ZipItem* item, std::string_view wanted) {
                                         return FoldedLess()(item->name, wanted);
                                     });
    if (at == byName_.end() || FoldedLess()(name, (*at)->name)) return nullptr;
    return *at;
}

const ZipItem* NameIndex::findEntered(std::string_view name) const noexcept {
    if (const ZipItem* const found = find(name)) return found;
    const auto resolved = byResolvedName_.find(name);
    return resolved == byResolvedName_.end() ? nullptr : resolved->second;
}

const ZipItem* NameIndex::findSimilar(std::string_view name) const {
    if (const ZipItem* const found = findEntered(name)) return found;
    return mayResolve(name) ? findEntered(resolvedName(name)) : nullptr;
}

}  // namespace opc::zip
