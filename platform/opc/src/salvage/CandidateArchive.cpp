#include "platform/opc/src/salvage/CandidateArchive.hpp"

#include <algorithm>

namespace opc::zip {

namespace {

using namespace format;

// The indexes of the items for which `isConfirmed` holds.
template <typename Check>
std::set<std::size_t> confirmed(const std::vector<ZipItem>& items, Check isConfirmed) {
    std::set<std::size_t> indexes;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (isConfirmed(items[i])) indexes.insert(i);
    }
    return indexes;
}

}  // namespace

CandidateArchive::CandidateArchive(const SalvageSource& source, const EndPlace& place,
                                   std::vector<ZipItem> items)
    : source_(&source), fileEnd_(place.fileEnd) {
    directory_.items = std::move(items);
    directory_.offset = place.stated.offset;
    directory_.shift = static_cast<std::int64_t>(place.start - place.stated.offset);
    directory_.isExact = place.isStated && directory_.shift == 0;
    findBase();
}

std::uint64_t CandidateArchive::start() const {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(base_, 0));
}

// The archive starts where most of its items' offsets count from. If bytes were put into the file,
// the items in front of those bytes are still at the offsets that the directory says.
void CandidateArchive::findBase() {
    const auto shifted = confirmedAtShift(), stated = confirmedInFront();
    const bool isShifted = shifted.size() >= stated.size();
    base_ = isShifted ? directory_.shift : 0;
    firstOwn_ = directory_.offset + static_cast<std::uint64_t>(directory_.shift);
    isConfirmedAtShift_ = !shifted.empty();
    isConfirmed_ = isConfirmedAtShift_ || !stated.empty();
    for (std::size_t i = 0; i < directory_.items.size(); ++i) {
        const ZipItem& item = directory_.items[i];
        byName_.emplace(item.name, i);
        byOffset_.emplace(item.headerOffset, i);
        if (shifted.contains(i)) {
            const auto moved = static_cast<std::uint64_t>(directory_.shift);
            firstOwn_ = std::min(firstOwn_, item.headerOffset + moved);
            continue;
        }
        const auto header = localHeaderAt(*source_, item.headerOffset);
        if (!header || header->item.name == item.name || !isAround(*header))
            inFront_.emplace(item.headerOffset, i);
    }
}

// The items whose local headers are where the directory really is shifted to. No other archive has
// a header of the same name at the same distance from this directory.
std::set<std::size_t> CandidateArchive::confirmedAtShift() const {
    return confirmed(directory_.items, [this](const ZipItem& item) { return isConfirmed(item); });
}

// The items that are at the offsets that the directory says. An archive around this one may have
// items of the same names there.
std::set<std::size_t> CandidateArchive::confirmedInFront() const {
    return confirmed(directory_.items, [this](const ZipItem& item) {
        const auto header = localHeaderAt(*source_, item.headerOffset);
        return header && endOfSame(*source_, *header, item).has_value();
    });
}

// Whether the archive is in the data that a header claims.
bool CandidateArchive::isAround(const LocalHeader& header) const {
    const std::uint64_t claimed = header.claimedEnd().value_or(0);
    return header.item.dataOffset <= start() && fileEnd_ <= claimed && claimed <= source_->size;
}

const ZipItem* CandidateArchive::itemOf(const std::string& name) const {
    const auto found = byName_.find(name);
    return found == byName_.end() ? nullptr : &directory_.items[found->second];
}

const ZipItem* CandidateArchive::itemInFront(std::uint64_t at) const {
    const auto found = inFront_.find(at);
    return found == inFront_.end() ? nullptr : &directory_.items[found->second];
}

const ZipItem* CandidateArchive::itemStatedAt(std::uint64_t at) const {
    const auto found = byOffset_.find(at);
    return found == byOffset_.end() ? nullptr : &directory_.items[found->second];
}

bool CandidateArchive::isConfirmed(const ZipItem& item) const {
    const auto header =
        localHeaderAt(*source_, item.headerOffset + static_cast<std::uint64_t>(directory_.shift));
    return header && header->agreesWith(item);
}

bool CandidateArchive::lists(const ZipItem& item) const {
    const ZipItem* own = itemOf(item.name);
    return own && Content(*own) == Content(item);
}

std::optional<std::uint64_t> CandidateArchive::listedEnd(const LocalHeader& header) const {
    const ZipItem* own = itemOf(header.item.name);
    return own ? endOfSame(*source_, header, *own) : std::nullopt;
}

}  // namespace opc::zip
