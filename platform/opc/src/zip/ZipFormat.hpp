#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// Every constant and record of the zip format: nothing else that reads or writes zip files spells a
// signature, a header size or a field offset. Each record has a namespace of its own, in which a
// field's name stands for the field's offset from the start of the record, in bytes.
namespace opc::zip::format {

using Bytes = std::span<const std::byte>;

// The format's numbers are little-endian, as are all machines that we build for, so a number is
// copied as it is, from any offset. The caller has made sure that the bytes are there.
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

// Overwrites the number at `offset`.
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

// A field of 16 or 32 bits that holds this placeholder refers to the wider number in a zip64 record
// or zip64 extra field.
inline constexpr std::uint16_t kInZip64_16 = 0xFFFF;
inline constexpr std::uint32_t kInZip64_32 = 0xFFFFFFFF;

// The version of the format (4.5) that a reader of zip64 records needs.
inline constexpr std::uint16_t kVersionZip64 = 45;

// Bits of the flags, which the local header and the directory record both hold.
namespace flag {
inline constexpr std::uint16_t kEncrypted = 1 << 0;
inline constexpr std::uint16_t kDescriptor = 1 << 3;  // checksum and sizes follow the data
inline constexpr std::uint16_t kStrongEncryption = 1 << 6;
inline constexpr std::uint16_t kUtf8 = 1 << 11;    // the name is UTF-8, not code page 437
inline constexpr std::uint16_t kMasked = 1 << 13;  // the directory is encrypted too
inline constexpr std::uint16_t kAnyEncryption = kEncrypted | kStrongEncryption | kMasked;
}  // namespace flag

// Extra fields, which follow the name in a local header and in a directory record. Each is an
// identifier and a size of 16 bits each, then as many bytes of content.
namespace extra {
inline constexpr std::size_t kHeaderSize = 4;
inline constexpr std::uint16_t kZip64 = 0x0001;
// Repeats the item's attributes in the local header, for readers that start at the file's front.
inline constexpr std::uint16_t kExtendedLocalHeader = 0x6C78;
// The item's name in UTF-8, after a version (1 byte) and a checksum (4 bytes).
inline constexpr std::uint16_t kUnicodePath = 0x7075;
inline constexpr std::size_t kUnicodePathName = 5;
// Padding that the packaging standard defines: a writer may later put a longer record in its place.
inline constexpr std::uint16_t kGrowthHint = 0xA220;
inline constexpr std::uint16_t kGrowthHintSignature = 0xA028;
inline constexpr std::uint16_t kSlices = 0x7A71;  // our own: see SliceTable.hpp
}  // namespace extra

// The local header, which stands in front of an item's data. The name and the extra fields follow.
namespace local {
inline constexpr std::uint32_t kSignature = 0x04034b50;
inline constexpr std::size_t kVersionNeeded = 4, kFlags = 6, kMethod = 8, kTime = 10, kDate = 12,
                             kCrc = 14, kCompressedSize = 18, kSize = 22, kNameLength = 26,
                             kExtraLength = 28, kHeaderSize = 30;
}  // namespace local

// The record of an item in the directory. The name, the extra fields and a comment follow.
namespace central {
inline constexpr std::uint32_t kSignature = 0x02014b50;
inline constexpr std::size_t kVersionMadeBy = 4, kSystemMadeBy = 5, kVersionNeeded = 6, kFlags = 8,
                             kMethod = 10, kTime = 12, kDate = 14, kCrc = 16, kCompressedSize = 20,
                             kSize = 24, kNameLength = 28, kExtraLength = 30, kCommentLength = 32,
                             kDisk = 34, kAttributes = 38, kOffset = 42, kHeaderSize = 46;
}  // namespace central

// The external attributes of a directory record, which an unpacked item gets in the file system:
// the Unix mode in the upper 16 bits, the DOS attributes in the lower ones.
namespace attributes {
inline constexpr std::uint32_t kDosVolumeLabel = 1 << 3, kDosDirectory = 1 << 4;
inline constexpr unsigned kModeShift = 16;
inline constexpr std::uint32_t kTypeOfMode = 0170000, kRegular = 0100000, kDirectory = 0040000,
                               kFifo = 0010000;
// The mode under AmigaOS, which an item's record may say that it was made by.
inline constexpr std::uint16_t kAmiga = 1;
inline constexpr std::uint32_t kTypeOfAmigaMode = 06000, kAmigaDirectory = 04000;
}  // namespace attributes

// The data descriptor, which follows an item's data when the flags say so: checksum, compressed
// size and size. Writers differ in whether the signature comes first and in whether the sizes have
// 32 or 64 bits, so there are four forms.
namespace descriptor {
inline constexpr std::uint32_t kSignature = 0x08074b50;
inline constexpr std::size_t kSmallestSigned = 16, kLargest = 24;
inline constexpr std::size_t kSizes = 8;  // offset of the sizes where there is a signature

// The size of the descriptor at the front of `bytes` that holds these numbers; 0 if there is none.
std::size_t sizeAtFront(Bytes bytes, std::uint32_t crc32, std::uint64_t compressedSize,
                        std::uint64_t size);
}  // namespace descriptor

// The end record, by which readers find the directory. The archive's comment follows.
namespace end {
inline constexpr std::uint32_t kSignature = 0x06054b50;
inline constexpr std::size_t kDisk = 4, kDirectoryDisk = 6, kCountOnDisk = 8, kCount = 10,
                             kDirectorySize = 12, kDirectoryOffset = 16, kCommentLength = 20,
                             kRecordSize = 22;
inline constexpr std::size_t kLongestComment = 0xFFFF;
}  // namespace end

// The zip64 locator stands right before the end record and says where the zip64 end record is.
namespace zip64locator {
inline constexpr std::uint32_t kSignature = 0x07064b50;
inline constexpr std::size_t kDisk = 4, kEndOffset = 8, kDisks = 16, kRecordSize = 20;
}  // namespace zip64locator

// The zip64 end record holds the end record's numbers in full width.
namespace zip64end {
inline constexpr std::uint32_t kSignature = 0x06064b50;
inline constexpr std::size_t kSizeOfRest = 4, kVersionMadeBy = 12, kVersionNeeded = 14, kDisk = 16,
                             kDirectoryDisk = 20, kCountOnDisk = 24, kCount = 32,
                             kDirectorySize = 40, kDirectoryOffset = 48, kRecordSize = 56;
// The field kSizeOfRest counts the record without its first two fields: the signature and itself.
inline constexpr std::size_t kNotInSizeOfRest = 12;
}  // namespace zip64end

// What the local header and the directory record of a new item say. It has no extra fields: the
// functions below add a zip64 field if a number needs one.
struct ItemRecord {
    std::string_view name = {};  // at most 65,535 bytes
    std::uint8_t system = 0;     // that the record was made by
    std::uint16_t flags = 0;
    std::uint16_t method = 0;
    std::uint32_t dosDateAndTime = 0;  // the date in the upper half
    std::uint32_t crc32 = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
    std::uint64_t offset = 0;               // of the local header in the file
    std::string_view directoryFields = {};  // whole extra fields, for the directory record only
};

// What the end records say of the directory.
struct DirectoryRecord {
    std::uint64_t count = 0;   // of items
    std::uint64_t size = 0;    // in bytes
    std::uint64_t offset = 0;  // in the file
};

// Whether a number of the record does not fit its field, so that a zip64 field or record has to
// hold it. A number equal to the placeholder does not fit either.
bool needsZip64(const ItemRecord& item);
bool needsZip64(const DirectoryRecord& directory);

// An extra field with its header.
std::string extraField(std::uint16_t identifier, std::string_view content);

// Whether a local header is as short as the sizes allow (`Exact`) or has room for zip64 sizes even
// when it does not need it (`Growing`). A growing header has the same length whatever the sizes, so
// it can be written before they are known and overwritten when they are.
enum class SizeRoom { Exact, Growing };

// The bytes of a new item's records, with name and extra fields.
std::string localHeader(const ItemRecord& item, SizeRoom room);
std::string centralRecord(const ItemRecord& item);
// The directory record for an item that was copied to `offset`. `record` is the item's record in
// the old file and must have been checked. Everything but the offset is kept, except zip64 numbers
// that no field refers to. Throws std::length_error if the offset needs a zip64 field and the
// record's extra fields leave no room for it.
std::string movedCentralRecord(std::string_view record, std::uint64_t offset);
// The end record with `comment` (at most 65,535 bytes), after the zip64 records if a number needs
// them. The records are to stand right after the directory.
std::string endRecords(const DirectoryRecord& directory, std::string_view comment);

struct ExtraField {
    std::uint16_t identifier;
    std::size_t contentAt;  // from the start of all of the item's extra fields
    Bytes content;          // a view of the bytes that were passed in
};

// Calls `visit` with each extra field of an item, in their order. Returns false, after visiting
// those before it, at a field that claims more bytes than there are. Up to three bytes after the
// last field count as padding, which some writers leave.
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

// The first extra field with this identifier, or nullopt.
inline std::optional<ExtraField> findExtra(Bytes fields, std::uint16_t identifier) {
    std::optional<ExtraField> found;
    forEachExtra(fields, [&](const ExtraField& field) {
        if (field.identifier == identifier && !found) found = field;
    });
    return found;
}

}  // namespace opc::zip::format
