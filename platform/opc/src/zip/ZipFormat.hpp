#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// Every constant and record of the zip format. The numbers of a record are named after its fields;
// all are little-endian.
namespace opc::zip::format {

using Bytes = std::span<const std::byte>;

// Little-endian numbers, as on every machine that we build for.
template <class Number>
Number load(Bytes bytes, std::size_t offset) {
    Number number;
    std::memcpy(&number, bytes.data() + offset, sizeof number);
    return number;
}
inline std::uint16_t load16(Bytes bytes, std::size_t at) {
    return load<std::uint16_t>(bytes, at);
}
inline std::uint32_t load32(Bytes bytes, std::size_t at) {
    return load<std::uint32_t>(bytes, at);
}
inline std::uint64_t load64(Bytes bytes, std::size_t at) {
    return load<std::uint64_t>(bytes, at);
}

template <class Number>
void store(std::string& bytes, std::size_t offset, Number number) {
    std::memcpy(bytes.data() + offset, &number, sizeof number);
}
template <class Number>
void append(std::string& bytes, Number number) {
    bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
}

inline std::string_view asText(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}
inline Bytes asBytes(std::string_view text) {
    return std::as_bytes(std::span(text));
}

// A field that holds this stands in for the wider one of a zip64 record.
inline constexpr std::uint16_t kInZip64_16 = 0xFFFF;
inline constexpr std::uint32_t kInZip64_32 = 0xFFFFFFFF;

inline constexpr std::uint16_t kVersionZip64 = 45;

namespace flag {
inline constexpr std::uint16_t kEncrypted = 1 << 0;
inline constexpr std::uint16_t kDescriptor = 1 << 3;
inline constexpr std::uint16_t kStrongEncryption = 1 << 6;
inline constexpr std::uint16_t kUtf8 = 1 << 11;
inline constexpr std::uint16_t kMasked = 1 << 13;
inline constexpr std::uint16_t kAnyEncryption = kEncrypted | kStrongEncryption | kMasked;
}  // namespace flag

namespace extra {
inline constexpr std::size_t kHeaderSize = 4;  // identifier, then size of what follows
inline constexpr std::uint16_t kZip64 = 0x0001;
inline constexpr std::uint16_t kExtendedLocalHeader = 0x6C78;  // with attributes, for streaming
inline constexpr std::uint16_t kUnicodePath = 0x7075;
inline constexpr std::size_t kUnicodePathName = 5;  // behind a version and a checksum
// The packaging standard's own: room that a writer may grow the item's records into.
inline constexpr std::uint16_t kGrowthHint = 0xA220;
inline constexpr std::uint16_t kGrowthHintSignature = 0xA028;
}  // namespace extra

namespace local {
inline constexpr std::uint32_t kSignature = 0x04034b50;
inline constexpr std::size_t kVersionNeeded = 4, kFlags = 6, kMethod = 8, kTime = 10, kDate = 12,
                             kCrc = 14, kCompressedSize = 18, kSize = 22, kNameLength = 26,
                             kExtraLength = 28, kHeaderSize = 30;
}  // namespace local

namespace central {
inline constexpr std::uint32_t kSignature = 0x02014b50;
inline constexpr std::size_t kVersionMadeBy = 4, kVersionNeeded = 6, kFlags = 8, kMethod = 10,
                             kTime = 12, kDate = 14, kCrc = 16, kCompressedSize = 20, kSize = 24,
                             kNameLength = 28, kExtraLength = 30, kCommentLength = 32, kDisk = 34,
                             kAttributes = 38, kOffset = 42, kHeaderSize = 46;
}  // namespace central

// The attributes that a file system would give the item: the mode under Unix in the upper half, those
// under DOS in the lower.
namespace attributes {
inline constexpr std::uint32_t kDosDirectory = 1 << 4;
inline constexpr unsigned kModeShift = 16;
inline constexpr std::uint32_t kTypeOfMode = 0170000, kRegular = 0100000, kDirectory = 0040000;
}  // namespace attributes

namespace descriptor {
inline constexpr std::uint32_t kSignature = 0x08074b50;
// The signature and the width of the sizes are each writer's choice.
inline constexpr std::size_t kSmallest = 12, kSmallestSigned = 16, kLargest = 24;
inline constexpr std::size_t kSizes = 8;  // behind the signature and the checksum
}  // namespace descriptor

namespace end {
inline constexpr std::uint32_t kSignature = 0x06054b50;
inline constexpr std::size_t kDisk = 4, kDirectoryDisk = 6, kCountOnDisk = 8, kCount = 10,
                             kDirectorySize = 12, kDirectoryOffset = 16, kCommentLength = 20,
                             kRecordSize = 22;
inline constexpr std::size_t kLongestComment = 0xFFFF;
}  // namespace end

namespace zip64locator {
inline constexpr std::uint32_t kSignature = 0x07064b50;
inline constexpr std::size_t kDisk = 4, kEndOffset = 8, kDisks = 16, kRecordSize = 20;
}  // namespace zip64locator

namespace zip64end {
inline constexpr std::uint32_t kSignature = 0x06064b50;
inline constexpr std::size_t kSizeOfRest = 4, kVersionMadeBy = 12, kVersionNeeded = 14, kDisk = 16,
                             kDirectoryDisk = 20, kCountOnDisk = 24, kCount = 32,
                             kDirectorySize = 40, kDirectoryOffset = 48, kRecordSize = 56;
// What the size of the rest does not count: the signature and itself.
inline constexpr std::size_t kNotInSizeOfRest = 12;
}  // namespace zip64end

// What the local header and the directory record of a new item say.
struct ItemRecord {
    std::string_view name = {};
    std::uint16_t flags = 0;
    std::uint16_t method = 0;
    std::uint32_t dosDateAndTime = 0;  // the date in the upper half
    std::uint32_t crc32 = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
    std::uint64_t offset = 0;
};

// What the end records say of the directory.
struct DirectoryRecord {
    std::uint64_t count = 0;
    std::uint64_t size = 0;
    std::uint64_t offset = 0;
};

bool needsZip64(const ItemRecord& item);
bool needsZip64(const DirectoryRecord& directory);

enum class SizeRoom { Exact, Growing };

// `Growing` reserves the bytes that zip64 sizes would take, so that the header can be written before
// the sizes are known and again, equally long, afterwards.
std::string localHeader(const ItemRecord& item, SizeRoom room);
std::string centralRecord(const ItemRecord& item);
// `record`, a checked directory record as it stands, for the same item at another place. Nothing but
// the offset changes, and zip64 numbers that nothing refers to are dropped. Throws std::length_error
// when a wide offset finds no room.
std::string movedCentralRecord(std::string_view record, std::uint64_t offset);
std::string endRecords(const DirectoryRecord& directory, std::string_view comment);

struct ExtraField {
    std::uint16_t identifier;
    std::size_t contentAt;  // from the start of all fields
    Bytes content;
};

// Calls `visit` with each of an item's extra fields. Returns false when one claims more bytes than
// there are. Up to three bytes behind the last one are padding, as some writers leave it.
template <class Visit>
bool forEachExtra(Bytes fields, Visit visit) {
    std::size_t at = 0;
    while (fields.size() - at >= extra::kHeaderSize) {
        const std::uint16_t identifier = load16(fields, at);
        const std::size_t size = load16(fields, at + 2);
        at += extra::kHeaderSize;
        if (size > fields.size() - at) return false;
        visit(ExtraField{identifier, at, fields.subspan(at, size)});
        at += size;
    }
    return true;
}

// The first field of this kind.
inline std::optional<ExtraField> findExtra(Bytes fields, std::uint16_t identifier) {
    std::optional<ExtraField> found;
    forEachExtra(fields, [&](const ExtraField& field) {
        if (field.identifier == identifier && !found) found = field;
    });
    return found;
}

}  // namespace opc::zip::format
