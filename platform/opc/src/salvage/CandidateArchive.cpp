#include "platform/opc/src/salvage/CandidateArchive.hpp"

#include <opc/Exception.hpp>

#include "platform/opc/src/zip/Directory.hpp"

#include <algorithm>
#include <tuple>

namespace opc::zip {

namespace {

using namespace format;

constexpr std::uint64_t kPiece = std::uint64_t{128} << 10;
// No end record that anybody writes is longer, with those of zip64.
constexpr std::uint64_t kLikelyEnd = 512;
constexpr std::uint64_t kFirstWindow = 4096;

std::uint64_t distance(std::uint64_t a, std::uint64_t b) {
    return a > b ? a - b : b - a;
}

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
    findBase();
}

std::uint64_t CandidateArchive::start() const {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(base_, 0));
}

std::uint64_t CandidateArchive::front() const {
    SignatureSearch search(*source_, local::kSignature);
    std::uint64_t from = start();
    while (const auto at = search.next(from, firstConfirmed_)) {
        from = *at + sizeof local::kSignature;
        const auto header = localHeaderAt(*source_, *at);
        if (!header || header->item.dataOffset > firstConfirmed_) continue;
        if (header->claimedEnd().value_or(0) >= fileEnd_) return header->item.dataOffset;
    }
    return start();
}

bool CandidateArchive::hasForeignItems(ItemReader& reader) {
    if (isStartTwice()) return false;
    if (isForeign(0, Place::Expected, reader)) return true;
    SignatureSearch search(*source_, local::kSignature);
    std::uint64_t from = 0;
    while (const auto at = search.next(from, start())) {
        if (isForeign(*at, Place::Any, reader)) return true;
        from = *at + sizeof local::kSignature;
        const auto end = endOfOwn(*at);
        if (!end) continue;
        from = std::max(from, *end);
        if (isForeign(from, Place::Expected, reader)) return true;
    }
    return false;
}

std::uint64_t CandidateArchive::foreignRecordBehind() {
    SignatureSearch headers(*source_, local::kSignature), records(*source_, central::kSignature);
    // In windows, so that what is read is in proportion to the distance of what is found.
    std::uint64_t from = fileEnd_;
    for (std::uint64_t window = kFirstWindow; from < source_->size; window *= 2) {
        const std::uint64_t to = std::min(from + window, source_->size);
        const std::uint64_t header = foreignHeader(headers, from, to);
        const std::uint64_t record = foreignRecord(records, from, header);
        if (record < to) return record;
        // A signature may lie across the border of two windows.
        from = to == source_->size ? to : to - sizeof central::kSignature + 1;
    }
    return source_->size;
}

// The first foreign header in [from, to); `to` if there is none.
std::uint64_t CandidateArchive::foreignHeader(SignatureSearch& search, std::uint64_t from,
                                              std::uint64_t to) {
    while (const auto at = search.next(from, to)) {
        if (isForeignHeader(*at)) return *at;
        from = *at + sizeof local::kSignature;
    }
    return to;
}

// The first foreign directory record in [from, to); `to` if there is none.
std::uint64_t CandidateArchive::foreignRecord(SignatureSearch& search, std::uint64_t from,
                                              std::uint64_t to) const {
    while (const auto at = search.next(from, to)) {
        const std::uint64_t size = centralRecordSize(*source_, *at);
        if (size != 0 && isForeignRecord(*at, size)) return *at;
        from = *at + std::max<std::uint64_t>(size, sizeof central::kSignature);
    }
    return to;
}

// The archive starts where most of its items' offsets count from. If bytes were put into the file,
// the items in front of those bytes are still at the offsets that the directory says.
void CandidateArchive::findBase() {
    const auto shifted = confirmedAtShift(), stated = confirmedInFront();
    const bool isShifted = shifted.size() >= stated.size();
    base_ = isShifted ? directory_.shift : 0;
    isConfirmedAtShift_ = !shifted.empty();
    isConfirmed_ = isConfirmedAtShift_ || !stated.empty();
    for (std::size_t i = 0; i < directory_.items.size(); ++i) {
        const ZipItem& item = directory_.items[i];
        byName_.emplace(item.name, i);
        if (shifted.contains(i)) {
            const auto moved = static_cast<std::uint64_t>(directory_.shift);
            firstConfirmed_ = std::min(firstConfirmed_, item.headerOffset + moved);
            continue;
        }
        if (!stated.contains(i)) missed_.insert(i);
        const auto header = localHeaderAt(*source_, item.headerOffset);
        if (!header || header->item.name == item.name || !isAround(*header))
            inFront_.emplace(item.headerOffset, i);
    }
}

// The items whose local headers are where the directory really is shifted to. No other archive has
// a header of the same name at the same distance from this directory.
std::set<std::size_t> CandidateArchive::confirmedAtShift() const {
    return confirmed(directory_.items, [this](const ZipItem& item) {
        const auto header = localHeaderAt(
            *source_, item.headerOffset + static_cast<std::uint64_t>(directory_.shift));
        return header && header->agreesWith(item);
    });
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

// Whether the archive may be in the data of a header's item, of which the file may hold a part only.
bool CandidateArchive::mayBeAround(const LocalHeader& header) const {
    if (const auto claimed = header.claimedEnd()) {
        // Without a signature, the size must be that of the archive, but for its end record.
        const bool isSigned = source_->number(header.item.headerOffset) == local::kSignature;
        return fileEnd_ <= *claimed && (isSigned || *claimed - fileEnd_ <= kLikelyEnd);
    }
    return header.item.dataOffset == start() || !byName_.contains(header.item.name);
}

bool CandidateArchive::isForeign(std::uint64_t at, Place place, ItemReader& reader) {
    if (at >= start() || inFront_.contains(at)) return false;
    const auto header = localHeaderAt(*source_, at, place);
    if (header && (listedEnd(*header) || isCopy(at, *header) || isMissed(*header))) return false;
    if (!header || header->item.dataOffset > start()) {
        const bool isKnown = header && byName_.contains(header->item.name);
        const bool hasRoom = at + local::kHeaderSize < start();  // for a name
        return place == Place::Expected && !isKnown && hasRoom && mayBeHeaderAt(*source_, at);
    }
    if (mayBeAround(*header)) return true;
    const auto item = reader.wholeItem(*header, start());
    return item && !isListed(*item);
}

bool CandidateArchive::isForeignHeader(std::uint64_t at) {
    const auto header = localHeaderAt(*source_, at);
    return header && !listedEnd(*header) && !isCopy(at, *header) && !isMissed(*header);
}

bool CandidateArchive::isForeignRecord(std::uint64_t at, std::uint64_t size) const {
    try {
        const auto record = source_->at(at, size);
        const std::string text(asText(record));
        const ZipItem item = readDirectory(text, 1, *source_->file).front();
        const auto found = byName_.find(item.name);
        if (found == byName_.end()) return true;
        const ZipItem& own = directory_.items[found->second];
        return std::tie(item.crc32, item.size, item.compressedSize, item.headerOffset) !=
               std::tie(own.crc32, own.size, own.compressedSize, own.headerOffset);
    } catch (const Exception&) {
        return true;  // who knows whose
    }
}

// Whether all that is in front of the archive is a copy of its first bytes.
bool CandidateArchive::isStartTwice() const {
    for (std::uint64_t from = 0; from < start(); from += kPiece) {
        const std::uint64_t piece = std::min(kPiece, start() - from);
        if (source_->at(from, piece) != source_->at(start() + from, piece)) return false;
    }
    return true;
}

// Whether the header at the offset `at` is in a piece of the file that is there twice, the second
// directly behind the first, and the other one is an item that the directory lists.
bool CandidateArchive::isCopy(std::uint64_t at, const LocalHeader& header) {
    if (copied_.overlap(at, at + 1)) return true;
    const auto found = byName_.find(header.item.name);
    if (found == byName_.end()) return false;
    const std::uint64_t stated = directory_.items[found->second].headerOffset;
    std::uint64_t places[] = {stated, stated + static_cast<std::uint64_t>(directory_.shift)};
    // The nearer one first, so that what is read is in proportion to what is found to be a copy.
    std::ranges::sort(places, {}, [&](std::uint64_t place) { return distance(at, place); });
    return std::ranges::any_of(places, [&](std::uint64_t place) { return isRepeated(at, place); });
}

// Whether a piece of the file with the offset `at` is repeated so that this is `place` there.
bool CandidateArchive::isRepeated(std::uint64_t at, std::uint64_t place) {
    const std::uint64_t size = distance(at, place), first = std::min(at, place);
    if (size == 0 || size > kPiece) return false;
    // The piece begins up to its size in front of the first of the two, so both are in these bytes.
    const std::uint64_t from = first - std::min(first, size);
    const auto bytes = source_->at(from, first - from + 3 * size);
    std::uint64_t equal = 0;
    for (std::uint64_t i = 0; i + size < bytes.size(); ++i) {
        equal = bytes[i] == bytes[i + size] ? equal + 1 : 0;
        const std::uint64_t end = from + i + 1;
        if (equal < size || end <= first || end - size > first) continue;
        copied_.add(end - size, end + size);
        return true;
    }
    return false;
}

// Whether the header, whose numbers are left to a descriptor, has the name of an item of which no
// header was found: sectors may have changed places.
bool CandidateArchive::isMissed(const LocalHeader& header) const {
    const auto found = byName_.find(header.item.name);
    return found != byName_.end() && header.isIncomplete() && missed_.contains(found->second);
}

// The end of the item of a header if the directory lists that item, and not only its name: an
// archive around this one mostly has items of the same names.
std::optional<std::uint64_t> CandidateArchive::listedEnd(const LocalHeader& header) const {
    const auto found = byName_.find(header.item.name);
    if (found == byName_.end()) return std::nullopt;
    return endOfSame(*source_, header, directory_.items[found->second]);
}

// Whether the directory lists an item of this name and content.
bool CandidateArchive::isListed(const ZipItem& item) const {
    const auto found = byName_.find(item.name);
    return found != byName_.end() && Content(directory_.items[found->second]) == Content(item);
}

// The end of the archive's own item whose local header is at the offset `at`; nullopt if there is
// none.
std::optional<std::uint64_t> CandidateArchive::endOfOwn(std::uint64_t at) const {
    const auto header = localHeaderAt(*source_, at);
    if (!header) return std::nullopt;
    if (const auto end = listedEnd(*header)) return end;
    const auto found = inFront_.find(at);
    if (found == inFront_.end()) return std::nullopt;
    return header->item.dataOffset + directory_.items[found->second].compressedSize;
}

}  // namespace opc::zip
