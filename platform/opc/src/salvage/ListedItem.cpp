#include "platform/opc/src/salvage/ListedItem.hpp"

#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <utility>

namespace opc::zip {

using namespace format;

namespace {

// None at all, and those with a signature before those without.
constexpr std::uint64_t kDescriptorSizes[] = {0, 16, 12, 24, 20};

}  // namespace

void addLocal(const SalvageSource& source, ZipItem& item) {
    const std::size_t likely = local::kHeaderSize + item.name.size();
    item.dataOffset = item.headerOffset + likely;
    const auto header = source.at(item.headerOffset, likely);
    if (header.size() < likely) return;
    const std::size_t size = load16(header, local::kNameLength);
    const std::string_view name = asText(Bytes(header).subspan(local::kHeaderSize));
    const bool isSame = size == name.size() && name == item.name;
    if (load32(header, 0) != local::kSignature && !isSame) return;
    item.dataOffset =
        item.headerOffset + local::kHeaderSize + size + load16(header, local::kExtraLength);
    if (size == name.size() && !isSame && isName(name) && !item.isDirectory())
        item.otherName = name;
}

std::vector<ZipItem> placesOf(const SalvageSource& source, const ZipItem& item,
                              std::int64_t shift) {
    std::vector<std::pair<int, ZipItem>> places;
    for (const std::int64_t moved : {std::int64_t{0}, shift}) {
        ZipItem placed = item;
        placed.headerOffset += static_cast<std::uint64_t>(moved);
        if (placed.headerOffset >= source.size || (moved == 0 && !places.empty())) continue;
        addLocal(source, placed);
        const auto header = localHeaderAt(source, placed.headerOffset);
        const bool isSame = header && header->item.name == item.name;
        const bool isIt = header && endOfSame(source, *header, item);
        places.emplace_back(isSame + isIt, std::move(placed));
    }
    std::ranges::stable_sort(places, std::greater(), &std::pair<int, ZipItem>::first);
    std::vector<ZipItem> sorted;
    for (auto& [likelihood, placed] : places)
        sorted.push_back(std::move(placed));
    return sorted;
}

std::vector<std::uint64_t> otherOffsetsOfData(const SalvageSource& source, const ZipItem& item,
                                              std::uint64_t next) {
    std::vector<std::uint64_t> offsets;
    for (const std::uint64_t descriptor : kDescriptorSizes) {
        const std::uint64_t behind = item.compressedSize + descriptor;
        if (next < item.headerOffset + local::kHeaderSize + behind) continue;
        const std::uint64_t end = next - descriptor;
        if (descriptor == 0 || descriptorSize(source, end, item) == descriptor)
            offsets.push_back(next - behind);
    }
    offsets.push_back(item.headerOffset + local::kHeaderSize + item.name.size());
    std::erase(offsets, item.dataOffset);
    return offsets;
}

bool isFollowedByRecord(const SalvageSource& source, const ZipItem& item) {
    const bool isSigned = source.number(item.dataOffset) == descriptor::kSignature;
    if (isSigned && descriptorSize(source, item.dataOffset, item) != 0) return true;
    return std::ranges::any_of(kDescriptorSizes, [&](std::uint64_t descriptor) {
        const auto next = source.number(item.dataOffset + descriptor);
        return (!next && descriptor == 0) || next == local::kSignature ||
               next == central::kSignature;
    });
}

bool isEmptied(const SalvageSource& source, const ZipItem& item) {
    if (item.size != 0 || item.compressedSize != 0) return false;
    const auto header = localHeaderAt(source, item.headerOffset);
    if (!header || header->item.name != item.name) return false;
    if (header->isIncomplete()) {
        ZipItem bare = header->item;  // the length of its extra fields may be damaged
        bare.dataOffset = item.headerOffset + local::kHeaderSize + item.name.size();
        return !endOfSame(source, *header, item) && !isFollowedByRecord(source, header->item) &&
               !isFollowedByRecord(source, bare);
    }
    // A size in a zip64 field that is damaged is unknown.
    return header->item.size != 0 && header->item.size != kInZip64_32;
}

bool saysEmpty(const SalvageSource& source, const LocalHeader& header, const ZipItem& item) {
    return header.item.name == item.name && !isEmptied(source, item);
}

bool mayDescribe(const ZipItem& record, const ZipItem& item) {
    const auto mayBe = [](std::uint64_t recorded, std::uint64_t found) {
        int others = 0;  // bytes that differ and are not zero
        for (; recorded != 0; recorded >>= 8, found >>= 8)
            others += (recorded & 0xFF) != 0 && (recorded & 0xFF) != (found & 0xFF);
        return others <= 1;
    };
    return record.crc32 == item.crc32 ||
           (mayBe(record.crc32, item.crc32) && mayBe(record.size, item.size) &&
            mayBe(record.compressedSize, item.compressedSize));
}

bool isName(std::string_view name) {
    return !name.empty() && name.find('\0') == std::string_view::npos;
}

}  // namespace opc::zip
