#include "platform/opc/zip/ZipFormat.hpp"

#include "platform/opc/zip/ExtraFields.hpp"

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace opc::zip::format {

namespace {

std::uint32_t narrow(std::uint64_t number) {
    return number < kInZip64_32 ? static_cast<std::uint32_t>(number) : kInZip64_32;
}

std::string extraField(std::uint16_t identifier, std::string_view content) {
    std::string field;
    append(field, identifier);
    append(field, static_cast<std::uint16_t>(content.size()));
    return field.append(content);
}

bool hasLargeSizes(const ItemRecord& item) {
    return item.size >= kInZip64_32 || item.compressedSize >= kInZip64_32;
}

std::string localSizes(const ItemRecord& item) {
    std::string sizes;
    append(sizes, item.size);
    append(sizes, item.compressedSize);
    return extraField(extra::kZip64, sizes);
}

// As long as localSizes(): the hint's own signature and a number lead what is padding otherwise.
std::string growthHint() {
    std::string hint;
    append(hint, extra::kGrowthHintSignature);
    hint.resize(2 * sizeof(std::uint64_t));
    return extraField(extra::kGrowthHint, hint);
}

std::uint16_t versionFor(bool zip64) {
    return zip64 ? kVersionZip64 : kVersionDeflate;
}

// The fields that both records of an item share, in the same order: from the flags to the length of
// the name.
void appendCommon(std::string& record, const ItemRecord& item, std::uint32_t compressedSize,
                  std::uint32_t size) {
    append(record, item.flags);
    append(record, item.method);
    append(record, item.dosDateAndTime);
    append(record, item.crc32);
    append(record, compressedSize);
    append(record, size);
    append(record, static_cast<std::uint16_t>(item.name.size()));
}

std::string zip64EndRecords(const DirectoryRecord& directory) {
    std::string records;
    append(records, zip64end::kSignature);
    append(records, std::uint64_t{zip64end::kRecordSize - zip64end::kNotInSizeOfRest});
    append(records, kVersionZip64);
    append(records, kVersionZip64);
    append(records, std::uint32_t{0});
    append(records, std::uint32_t{0});
    append(records, directory.count);
    append(records, directory.count);
    append(records, directory.size);
    append(records, directory.offset);
    append(records, zip64locator::kSignature);
    append(records, std::uint32_t{0});
    append(records, directory.offset + directory.size);
    append(records, std::uint32_t{1});
    return records;
}

// Where a directory record holds its offset, or would hold a wide one.
struct OffsetPlace {
    bool isWide;                       // stands in the zip64 field
    std::optional<std::size_t> field;  // start of the zip64 field's content, if it has one
    std::size_t wideAt;                // where in the record a wide offset stands or goes
};

OffsetPlace placeOfOffset(Bytes record) {
    const std::size_t fieldsAt = central::kHeaderSize + load16(record, central::kNameLength);
    const std::size_t fieldsSize = load16(record, central::kExtraLength);
    const auto zip64 = findExtra(record.subspan(fieldsAt, fieldsSize), extra::kZip64);
    if (!zip64) return {false, std::nullopt, fieldsAt + fieldsSize};
    std::size_t wideAt = fieldsAt + zip64->contentAt;
    for (const std::size_t size : {central::kSize, central::kCompressedSize}) {
        if (load32(record, size) == kInZip64_32) wideAt += sizeof(std::uint64_t);
    }
    const bool isWide = load32(record, central::kOffset) == kInZip64_32;
    return {isWide, fieldsAt + zip64->contentAt, wideAt};
}

void grow16(std::string& record, std::size_t at, std::size_t by) {
    const std::size_t grown = load16(asBytes(record), at) + by;
    if (grown > kInZip64_16) {
        throw std::length_error("the extra fields of an item leave no room for its zip64 offset");
    }
    store(record, at, static_cast<std::uint16_t>(grown));
}

void widenOffset(std::string& record, const OffsetPlace& place, std::uint64_t offset) {
    std::string wide;
    append(wide, offset);
    if (place.field) {
        grow16(record, *place.field - sizeof(std::uint16_t), wide.size());
    } else {
        wide = extraField(extra::kZip64, wide);
    }
    grow16(record, central::kExtraLength, wide.size());
    record.insert(place.wideAt, wide);
    store(record, central::kOffset, kInZip64_32);
    const std::uint16_t version = load16(asBytes(record), central::kVersionNeeded);
    store(record, central::kVersionNeeded, std::max(version, kVersionZip64));
}

}  // namespace

bool needsZip64(const ItemRecord& item) {
    return hasLargeSizes(item) || item.offset >= kInZip64_32;
}

bool needsZip64(const DirectoryRecord& directory) {
    return directory.count >= kInZip64_16 || directory.size >= kInZip64_32 ||
           directory.offset >= kInZip64_32;
}

std::string localHeader(const ItemRecord& item, SizeRoom room) {
    const bool large = hasLargeSizes(item);
    std::string fields;
    if (large) fields = localSizes(item);
    if (!large && room == SizeRoom::Growing) fields = growthHint();
    std::string header;
    append(header, local::kSignature);
    append(header, versionFor(large));
    // Readers take both sizes from the zip64 field or none.
    appendCommon(header, item, large ? kInZip64_32 : narrow(item.compressedSize),
                 large ? kInZip64_32 : narrow(item.size));
    append(header, static_cast<std::uint16_t>(fields.size()));
    return header.append(item.name).append(fields);
}

std::string centralRecord(const ItemRecord& item) {
    std::string wide;
    if (item.size >= kInZip64_32) append(wide, item.size);
    if (item.compressedSize >= kInZip64_32) append(wide, item.compressedSize);
    if (item.offset >= kInZip64_32) append(wide, item.offset);
    const std::string fields = wide.empty() ? wide : extraField(extra::kZip64, wide);
    std::string record;
    append(record, central::kSignature);
    append(record, versionFor(!wide.empty()));
    append(record, versionFor(!wide.empty()));
    appendCommon(record, item, narrow(item.compressedSize), narrow(item.size));
    append(record, static_cast<std::uint16_t>(fields.size()));
    append(record, std::uint16_t{0});  // comment
    append(record, std::uint16_t{0});  // disk
    append(record, std::uint16_t{0});  // internal attributes
    append(record, std::uint32_t{0});  // external attributes
    append(record, narrow(item.offset));
    return record.append(item.name).append(fields);
}

// The offset stands in the record itself, in a zip64 field that it has already (and then stays
// there), or in one that it gets now because the offset has grown.
std::string movedCentralRecord(std::string_view record, std::uint64_t offset) {
    std::string moved(record);
    const OffsetPlace place = placeOfOffset(asBytes(record));
    if (place.isWide) {
        store(moved, place.wideAt, offset);
    } else if (offset < kInZip64_32) {
        store(moved, central::kOffset, static_cast<std::uint32_t>(offset));
    } else {
        widenOffset(moved, place, offset);
    }
    return moved;
}

std::string endRecords(const DirectoryRecord& directory, std::string_view comment) {
    std::string records;
    if (needsZip64(directory)) records = zip64EndRecords(directory);
    const auto count = static_cast<std::uint16_t>(std::min<std::uint64_t>(directory.count, 0xFFFF));
    append(records, end::kSignature);
    append(records, std::uint16_t{0});
    append(records, std::uint16_t{0});
    append(records, count);
    append(records, count);
    append(records, narrow(directory.size));
    append(records, narrow(directory.offset));
    append(records, static_cast<std::uint16_t>(comment.size()));
    return records.append(comment);
}

}  // namespace opc::zip::format
