#include "platform/opc/src/salvage/Failures.hpp"

#include <foundation/Shown.hpp>

#include <algorithm>
#include <cstddef>
#include <set>
#include <utility>

namespace opc::zip {

namespace {

// What a damaged header gives for a name may be much longer than any name.
constexpr std::size_t kLongestShownName = 1000;

}  // namespace

void Failures::add(const ZipItem& item, std::uint64_t at, Verdict verdict) {
    std::string shown = item.displayName();
    if (shown.size() > kLongestShownName) shown = foundation::shown(shown);
    all_.push_back({item.name, std::move(shown), Content(item), std::move(verdict), at});
}

void Failures::claim(std::uint64_t from, std::uint64_t to) {
    claimed_.add(from, std::min(to, source_->size));
}

std::vector<LostItem> Failures::lost(const KeptItems& kept, const Sightings& sightings,
                                     std::uint64_t directory) const {
    std::vector<LostItem> lost;
    std::set<std::pair<std::string, bool>> told;  // the name, and whether another item has it
    for (const Failure& failure : all_) {
        const bool isOther = failure.verdict.loss == Loss::SameName;
        const auto content = kept.contentOf(failure.name);
        if (content && (!isOther || *content == failure.content)) continue;
        if (isOther && sightings.isTwice(failure.name)) continue;
        if (kept.bytes().overlap(failure.at, failure.at + 1)) continue;
        if (failure.at < directory && claimed_.overlap(failure.at, failure.at + 1)) continue;
        if (!told.emplace(failure.name, isOther).second) continue;
        lost.push_back({failure.shownName, textOf(*failure.verdict.loss, failure.verdict.detail)});
    }
    return lost;
}

}  // namespace opc::zip
