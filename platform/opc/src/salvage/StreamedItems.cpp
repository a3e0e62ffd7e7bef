#include "platform/opc/src/salvage/StreamedItems.hpp"

#include "platform/opc/src/zip/CompressionMethods.hpp"
#include "platform/opc/src/zip/Deflate.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

namespace opc::zip {

namespace {

using namespace format;

constexpr std::size_t kPiece = std::size_t{128} << 10;
// What each place costs at which stored data may end.
constexpr std::uint64_t kAttempt = 64;
// Of descriptors without signature: those of zip64 and the others.
constexpr std::uint64_t kUnsignedSizes[] = {20, 12};
constexpr std::uint64_t kNoBytes[] = {0};

// What decoding a deflate stream to its end finds out about it.
struct Measured {
    std::uint64_t compressedSize = 0, size = 0;
    std::uint32_t crc32 = 0;
};

// Decodes the deflate stream at `offset`. Returns nullopt if it does not end before `limit`, and
// throws std::runtime_error if there is no deflate stream. `reading` is up to date in each case.
std::optional<Measured> measureDeflated(const SalvageSource& source, std::uint64_t offset,
                                        std::uint64_t limit, Reading& reading) {
    Inflater inflater;
    std::vector<std::byte> input, output(kPiece);
    Measured measured;
    std::uint64_t fed = 0;
    while (true) {
        const bool isFed = inflater.needsInput() && offset + fed < limit;
        if (isFed) {
            input = source.at(offset + fed, std::min<std::uint64_t>(kPiece, limit - offset - fed));
            if (input.empty()) return std::nullopt;
            inflater.feed(input);
            fed += input.size();
            reading.to = offset + fed;
        }
        const std::size_t got = inflater.decode(output);
        measured.crc32 = crc32(measured.crc32, std::span(output).first(got));
        measured.size += got;
        reading.produced += got;
        if (got > 0 || (isFed && !inflater.hasEnded())) continue;
        if (!inflater.hasEnded()) return std::nullopt;
        measured.compressedSize = fed - inflater.unused();
        return measured;
    }
}

}  // namespace

StreamedItems::StreamedItems(const SalvageSource& source, SearchBudget& budget)
    : source_(&source),
      budget_(&budget),
      searches_(source.size),
      signatures_{{{SignatureSearch(source, descriptor::kSignature), kNoBytes},
                   {SignatureSearch(source, local::kSignature), kUnsignedSizes},
                   {SignatureSearch(source, central::kSignature), kUnsignedSizes}}} {}

DataEnd StreamedItems::measure(ZipItem& item, std::uint64_t limit) {
    if (budget_->isUsedUp()) return DataEnd::Unknown;
    if (item.method == Method::Stored)
        return measureStored(item, limit) ? DataEnd::Known : DataEnd::Unknown;
    return rowOf(item.method).endsItself ? measureDecoded(item, limit) : DataEnd::Unknown;
}

void StreamedItems::readChecksum(ZipItem& item) const {
    const std::uint64_t end = item.dataOffset + item.compressedSize;
    for (const std::uint64_t at : {end + sizeof descriptor::kSignature, end}) {
        const auto checksum = source_->number(at);
        if (!checksum) continue;
        ZipItem described = item;
        described.crc32 = *checksum;
        if (descriptorSize(*source_, end, described) == 0) continue;
        item.crc32 = *checksum;
        return;
    }
}

// Stored data ends at a descriptor that says so: at its signature or, if it has none, in front of
// that of the next record.
bool StreamedItems::measureStored(ZipItem& item, std::uint64_t limit) {
    if (searches_.isUsedUp() || item.dataOffset >= limit) return false;
    for (Search& search : signatures_)
        search.at = search.signatures.next(item.dataOffset, limit);
    while (true) {
        const auto nearest = std::ranges::min_element(
            signatures_, {}, [&](const Search& search) { return search.at.value_or(limit); });
        if (!nearest->at) break;
        if (!searches_.spend(kAttempt)) return false;
        const std::uint64_t at = *nearest->at;
        nearest->at = nearest->signatures.next(at + sizeof descriptor::kSignature, limit);
        for (const std::uint64_t size : nearest->descriptorSizes) {
            if (size > at - item.dataOffset || !endsAt(item, at - size)) continue;
            searches_.spend(item.size);
            return true;
        }
    }
    searches_.spend(limit - item.dataOffset);
    return false;
}

// Sets the numbers of a stored item if there is a descriptor at `end` with the size that the item
// has then.
bool StreamedItems::endsAt(ZipItem& item, std::uint64_t end) const {
    ZipItem likely = item;
    likely.size = likely.compressedSize = end - item.dataOffset;
    const bool isSigned = source_->number(end) == descriptor::kSignature;
    const auto checksum = source_->number(end + (isSigned ? sizeof descriptor::kSignature : 0));
    if (!checksum) return false;
    likely.crc32 = *checksum;
    if (descriptorSize(*source_, end, likely) == 0) return false;
    item = std::move(likely);
    return true;
}

DataEnd StreamedItems::measureDecoded(ZipItem& item, std::uint64_t limit) {
    Reading reading{item.dataOffset, item.dataOffset};
    try {
        const auto found = measureDeflated(*source_, item.dataOffset, limit, reading);
        budget_->charge(reading);
        if (!found) return DataEnd::Behind;
        if (!describes(item.dataOffset + found->compressedSize, found->crc32))
            return DataEnd::Unknown;
        item.crc32 = found->crc32;
        item.size = found->size;
        item.compressedSize = found->compressedSize;
        return DataEnd::Known;
    } catch (const std::runtime_error&) {
        budget_->charge(reading);  // no deflate stream
        return DataEnd::Unknown;
    }
}

// Whether there is a descriptor with this checksum.
bool StreamedItems::describes(std::uint64_t descriptorAt, std::uint32_t checksum) const {
    const auto found = source_->at(descriptorAt, 2 * sizeof checksum);
    if (found.size() < 2 * sizeof checksum) return false;
    const bool isSigned = load32(found, 0) == descriptor::kSignature;
    return load32(found, isSigned ? sizeof checksum : 0) == checksum;
}

}  // namespace opc::zip
