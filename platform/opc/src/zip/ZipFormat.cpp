#include "platform/opc/src/zip/ZipFormat.hpp"

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/CompressionMethods.hpp"

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace opc::zip::format {

std::string extraField(std::uint16_t identifier, std::string_view content) {
    std::string field;
    append(field, identifier);
    append(field, static_cast<std::uint16_t>(content.size()));
    return field.append(content);
}

namespace {

std::uint32_t narrow(std::uint64_t number) {
    return number < kInZip64_32 ? static_cast<std::uint32_t>(number) : kInZip64_32;
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

// A padding field of the same length as localSizes(). It consists of the hint's signature, a number
// for the size of the padding (0) and zeros.
std::string growthHint() {
    std::string hint;
    append(hint, extra::kGrowthHintSignature);
    hint.resize(2 * sizeof(std::uint64_t));
    return extraField(extra::kGrowthHint, hint);
}

std::uint16_t versionFor(const ItemRecord& item, bool zip64) {
    return zip64 ? kVersionZip64 : rowOf(Method{item.method}).versionNeeded;
}

// Appends the fields that the local header and the directory record share, in the same order: those
// from the flags to the length of the name.
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

bool hasWideOffset(Bytes record, const std::optional<ExtraField>& zip64) {
    return zip64 && load32(record, central::kOffset) == kInZip64_32;
}

// The content of the zip64 field of a directory record whose item now stands at `offset`: only the
// numbers that the record refers to, without those that it holds itself.
std::string wideNumbers(Bytes record, const std::optional<ExtraField>& zip64,
                        std::uint64_t offset) {
    Bytes rest = zip64 ? zip64->content : Bytes();
    const auto next = [&rest](std::size_t size) {
        const Bytes number = rest.first(size);
        rest = rest.subspan(size);
        return asText(number);
    };
    std::string wide;
    for (const std::size_t size : {central::kSize, central::kCompressedSize}) {
        if (load32(record, size) != kInZip64_32) continue;
        // If the record had no zip64 field, the placeholder was the number itself. The record is
        // about to get a field, to which the placeholder would refer.
        if (zip64) wide.append(next(sizeof(std::uint64_t)));
        if (!zip64) append(wide, std::uint64_t{kInZip64_32});
    }
    const bool wasWide = hasWideOffset(record, zip64);
    if (wasWide) next(sizeof offset);
    if (wasWide || offset >= kInZip64_32) append(wide, offset);
    if (load16(record, central::kDisk) == kInZip64_16) wide.append(next(sizeof(std::uint32_t)));
    return wide;
}

// Replaces the zip64 field `old` by one with this content, or drops it if the content is empty. A
// new field goes in front of the others because padding may follow the last one.
void replaceZip64(std::string& record, const std::optional<ExtraField>& old,
                  const std::string& content) {
    const std::string field = content.empty() ? content : extraField(extra::kZip64, content);
    const std::size_t oldSize = old ? extra::kHeaderSize + old->content.size() : 0;
    const std::size_t oldAt = old ? old->contentAt - extra::kHeaderSize : 0;
    const std::size_t total =
        load16(asBytes(record), central::kExtraLength) - oldSize + field.size();
    if (total > kInZip64_16) {
        throw std::length_error("the extra fields of an item leave no room for its zip64 offset");
    }
    const std::size_t fieldsAt =
        central::kHeaderSize + load16(asBytes(record), central::kNameLength);
    store(record, central::kExtraLength, static_cast<std::uint16_t>(total));
    record.replace(fieldsAt + oldAt, oldSize, field);
}

}  // namespace

std::size_t descriptor::sizeAtFront(Bytes bytes, std::uint32_t crc32, std::uint64_t compressedSize,
                                    std::uint64_t size) {
    // Longer forms are tried first because a shorter one may match the front of a longer.
    for (const bool isWide : {true, false}) {
        for (const bool isSigned : {true, false}) {
            std::string form;
            if (isSigned) append(form, kSignature);
            append(form, crc32);
            for (const std::uint64_t number : {compressedSize, size}) {
                if (isWide) append(form, number);
                if (!isWide) append(form, static_cast<std::uint32_t>(number));
            }
            if (asText(bytes).starts_with(form)) return form.size();
        }
    }
    return 0;
}

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
    append(header, versionFor(item, large));
    // In a local header, the zip64 field holds both sizes, so both fields refer to it or neither.
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
    std::string fields = wide.empty() ? wide : extraField(extra::kZip64, wide);
    fields += item.directoryFields;
    std::string record;
    append(record, central::kSignature);
    const std::uint16_t version = versionFor(item, !wide.empty());
    append(record, static_cast<std::uint16_t>(version | item.system << 8));
    append(record, version);
    appendCommon(record, item, narrow(item.compressedSize), narrow(item.size));
    append(record, static_cast<std::uint16_t>(fields.size()));
    append(record, std::uint16_t{0});  // comment
    append(record, std::uint16_t{0});  // disk
    append(record, std::uint16_t{0});  // internal attributes
    append(record, std::uint32_t{0});  // external attributes
    append(record, narrow(item.offset));
    return record.append(item.name).append(fields);
}

// An offset that was in the zip64 field stays there, even if it is small now. Numbers of the zip64
// field that only repeat the record's own are dropped, because an old offset could be among them.
std::string movedCentralRecord(std::string_view record, std::uint64_t offset) {
    const Bytes old = asBytes(record);
    const Bytes fields = old.subspan(central::kHeaderSize + load16(old, central::kNameLength))
                             .first(load16(old, central::kExtraLength));
    const auto zip64 = findExtra(fields, extra::kZip64);
    const bool wasWide = hasWideOffset(old, zip64);
    const bool growsWide = !wasWide && offset >= kInZip64_32;
    std::string moved(record);
    store(moved, central::kOffset, wasWide ? kInZip64_32 : narrow(offset));
    if (growsWide) {
        const std::uint16_t version = load16(old, central::kVersionNeeded);
        store(moved, central::kVersionNeeded, std::max(version, kVersionZip64));
    }
    if (zip64 || growsWide) replaceZip64(moved, zip64, wideNumbers(old, zip64, offset));
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
