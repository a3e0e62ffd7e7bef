#include "platform/opc/src/salvage/ForeignRecords.hpp"

#include <opc/Exception.hpp>
#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/Directory.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <string>
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

}  // namespace

ForeignRecords::ForeignRecords(const SalvageSource& source, const CandidateArchive& archive,
                               ItemReader& reader)
    : source_(&source), archive_(&archive), reader_(&reader) {}

bool ForeignRecords::hasItemsInFront() {
    if (isForeignItem(0, Place::Expected)) return true;
    SignatureSearch search(*source_, local::kSignature);
    std::uint64_t from = 0;
    while (const auto at = search.next(from, archive_->start())) {
        if (isForeignItem(*at, Place::Any)) return true;
        from = *at + sizeof local::kSignature;
        const auto end = endOfOwn(*at);
        if (!end) continue;
        from = std::max(from, *end);
        if (isForeignItem(from, Place::Expected)) return true;
    }
    return isInItemOfFirstRow();
}

// Whether the first items of the file, each directly behind the other, end with one that may hold
// the archive. That is seen even if the archive's front was cut off, so that its offsets
// seem to count from the start of the file or from before it.
bool ForeignRecords::isInItemOfFirstRow() {
    const std::uint64_t first = archive_->firstOwn();
    bool hasForeign = false;
    SignatureSearch search(*source_, local::kSignature);
    for (std::uint64_t at = search.next(0, first).value_or(first); at < first;) {
        const auto header = localHeaderAt(*source_, at);
        if (!header) return false;
        if (const auto end = archive_->listedEnd(*header)) {
            at = *end;
        } else if (isCopy(at, *header)) {
            return false;
        } else if (const auto item = reader_->wholeItem(*header, source_->size)) {
            if (item->endOffset >= archive_->end()) return true;
            hasForeign = true;
            at = item->endOffset + descriptorSize(*source_, item->endOffset, *item);
        } else {
            const bool reachesOver =
                header->claimedEnd().value_or(archive_->end()) >= archive_->end();
            return reachesOver && (hasForeign || !mayBeOwn(at, *header));
        }
    }
    return false;
}

// Whether the header at the offset `at`, of an item whose end is unknown, may be of an item that the
// directory lists. If that is known to be elsewhere, it is one only as a copy, with some data.
bool ForeignRecords::mayBeOwn(std::uint64_t at, const LocalHeader& header) const {
    if (archive_->itemStatedAt(at)) return true;
    const ZipItem* own = archive_->itemOf(header.item.name);
    if (!own) return false;
    if (!archive_->isConfirmed(*own)) return true;
    const std::uint64_t place = own->headerOffset + static_cast<std::uint64_t>(archive_->shift());
    const std::uint64_t size = header.item.dataOffset + 1 - at;
    return std::ranges::equal(source_->at(at, size), source_->at(place, size));
}

std::uint64_t ForeignRecords::front() {
    const std::uint64_t first = archive_->firstOwn();
    std::uint64_t front = archive_->start();
    SignatureSearch search(*source_, local::kSignature);
    std::uint64_t from = archive_->start();
    while (const auto at = search.next(from, first)) {
        from = *at + sizeof local::kSignature;
        const auto header = localHeaderAt(*source_, *at);
        if (!header || header->item.dataOffset > first) continue;
        if (header->claimedEnd().value_or(0) >= archive_->end()) return header->item.dataOffset;
        if (const auto end = archive_->listedEnd(*header)) {
            from = std::max(from, *end);
        } else {
            const auto item = reader_->wholeItem(*header, first);
            from = item ? item->endOffset : header->item.dataOffset;
            front = std::max(front, from);
        }
    }
    return front;
}

std::uint64_t ForeignRecords::firstBehind() {
    SignatureSearch headers(*source_, local::kSignature), records(*source_, central::kSignature);
    // In windows, so that what is read is in proportion to the distance of what is found.
    std::uint64_t from = archive_->end();
    for (std::uint64_t window = kFirstWindow; from < source_->size; window *= 2) {
        const std::uint64_t to = std::min(from + window, source_->size);
        const std::uint64_t header = firstHeader(headers, from, to);
        const std::uint64_t record = firstRecord(records, from, header);
        if (record < to) return record;
        // A signature may lie across the border of two windows.
        from = to == source_->size ? to : to - sizeof central::kSignature + 1;
    }
    return source_->size;
}

// The first foreign header in [from, to); `to` if there is none.
std::uint64_t ForeignRecords::firstHeader(SignatureSearch& search, std::uint64_t from,
                                          std::uint64_t to) {
    while (const auto at = search.next(from, to)) {
        if (isForeignHeader(*at)) return *at;
        from = *at + sizeof local::kSignature;
    }
    return to;
}

// The first foreign directory record in [from, to); `to` if there is none.
std::uint64_t ForeignRecords::firstRecord(SignatureSearch& search, std::uint64_t from,
                                          std::uint64_t to) const {
    while (const auto at = search.next(from, to)) {
        const std::uint64_t size = centralRecordSize(*source_, *at);
        if (size != 0 && isForeignRecord(*at, size)) return *at;
        from = *at + std::max<std::uint64_t>(size, sizeof central::kSignature);
    }
    return to;
}

bool ForeignRecords::isForeignItem(std::uint64_t at, Place place) {
    const std::uint64_t start = archive_->start();
    if (at >= start || archive_->itemInFront(at)) return false;
    const auto header = localHeaderAt(*source_, at, place);
    if (header && isOwn(at, *header)) return false;
    if (!header || header->item.dataOffset > start) {
        const bool isKnown = header && archive_->itemOf(header->item.name);
        const bool hasRoom = at + local::kHeaderSize < start;  // for a name
        return place == Place::Expected && !isKnown && hasRoom && mayBeHeaderAt(*source_, at);
    }
    if (mayBeAround(*header)) return true;
    const auto item = reader_->wholeItem(*header, start);
    return item && !archive_->lists(*item);
}

bool ForeignRecords::isForeignHeader(std::uint64_t at) {
    const auto header = localHeaderAt(*source_, at);
    return header && !isOwn(at, *header);
}

bool ForeignRecords::isForeignRecord(std::uint64_t at, std::uint64_t size) const {
    try {
        const auto record = source_->at(at, size);
        const std::string text(asText(record));
        const ZipItem item = readDirectory(text, 1, *source_->file).front();
        const ZipItem* own = archive_->itemOf(item.name);
        return !own || std::tie(item.crc32, item.size, item.compressedSize, item.headerOffset) !=
                           std::tie(own->crc32, own->size, own->compressedSize, own->headerOffset);
    } catch (const Exception&) {
        return true;  // who knows whose
    }
}

// Whether the archive may be in the data of a header's item, of which the file may hold a part only.
bool ForeignRecords::mayBeAround(const LocalHeader& header) const {
    if (const auto claimed = header.claimedEnd()) {
        // Without a signature, the size must be that of the archive, but for its end record.
        const bool isSigned = source_->number(header.item.headerOffset) == local::kSignature;
        return archive_->end() <= *claimed &&
               (isSigned || *claimed - archive_->end() <= kLikelyEnd);
    }
    if (!archive_->itemOf(header.item.name)) return true;
    const std::uint64_t start = archive_->start();
    return header.item.dataOffset == start && localHeaderAt(*source_, start);
}

// Whether the header at the offset `at` is of an item that the directory lists, or in a copy of a
// piece of the file around such a header.
bool ForeignRecords::isOwn(std::uint64_t at, const LocalHeader& header) {
    return archive_->listedEnd(header) || isCopy(at, header);
}

// Whether the header at the offset `at` is in a piece of the file that is there twice, the second
// directly behind the first, and the other one is an item that the directory lists.
bool ForeignRecords::isCopy(std::uint64_t at, const LocalHeader& header) {
    if (copied_.overlap(at, at + 1)) return true;
    const ZipItem* own = archive_->itemOf(header.item.name);
    // Its name goes on behind the border of the two pieces.
    if (!own) own = archive_->itemStatedAt(at);
    if (!own) return false;
    const std::uint64_t stated = own->headerOffset;
    std::uint64_t places[] = {stated, stated + static_cast<std::uint64_t>(archive_->shift())};
    // The nearer one first, so that what is read is in proportion to what is found to be a copy.
    std::ranges::sort(places, {}, [&](std::uint64_t place) { return distance(at, place); });
    return std::ranges::any_of(places, [&](std::uint64_t place) { return isRepeated(at, place); });
}

// Whether a piece of the file with the offset `at` is repeated so that this is `place` there.
bool ForeignRecords::isRepeated(std::uint64_t at, std::uint64_t place) {
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

// The end of the archive's own item whose local header is at the offset `at`; nullopt if there is
// none.
std::optional<std::uint64_t> ForeignRecords::endOfOwn(std::uint64_t at) const {
    const auto header = localHeaderAt(*source_, at);
    if (!header) return std::nullopt;
    if (const auto end = archive_->listedEnd(*header)) return end;
    const ZipItem* own = archive_->itemInFront(at);
    if (!own) return std::nullopt;
    return header->item.dataOffset + own->compressedSize;
}

}  // namespace opc::zip
