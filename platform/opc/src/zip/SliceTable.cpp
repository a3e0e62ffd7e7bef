#include "platform/opc/src/zip/SliceTable.hpp"

#include "platform/opc/src/zip/Deflate.hpp"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <string_view>

namespace opc::zip {

namespace {

using namespace format;

// The field: this signature, the version, the binary logarithm of the slice size, then the
// compressed size and the checksum of each slice. Programs look for the records of a zip file by
// their signatures, so none may occur here by chance: they all begin with two ASCII letters, and
// every byte of the numbers has its highest bit set.
constexpr std::string_view kSignature = "qzsl";
constexpr char kVersion = 1;
constexpr std::size_t kPreambleSize = kSignature.size() + 2;
constexpr std::size_t kLargestField = std::size_t{32} << 10;
// Below this, starting threads gains next to nothing.
constexpr std::size_t kFewestSlices = 4;
constexpr int kSmallestLog = std::countr_zero(kSliceSize), kLargestLog = 40;

constexpr std::size_t kDigitBits = 7;
constexpr std::uint8_t kDigit = 0x80;
constexpr std::size_t kCrcDigits = 5;

// As many as every number below twice the slice size needs: deflating makes nothing twice as large.
std::size_t sizeDigits(int logOfSliceSize) {
    return (static_cast<std::size_t>(logOfSliceSize) + kDigitBits) / kDigitBits;
}

void appendDigits(std::string& field, std::uint64_t number, std::size_t count) {
    for (; count > 0; --count, number >>= kDigitBits)
        field.push_back(static_cast<char>(kDigit | (number & (kDigit - 1))));
}

// The number in the first `count` bytes, which it takes away; nullopt if a byte is no digit.
std::optional<std::uint64_t> takeDigits(Bytes& field, std::size_t count) {
    std::uint64_t number = 0;
    for (std::size_t i = count; i-- > 0;) {
        const auto byte = std::to_integer<std::uint8_t>(field[i]);
        if (byte < kDigit) return std::nullopt;
        number = number << kDigitBits | (byte & (kDigit - 1));
    }
    field = field.subspan(count);
    return number;
}

std::uint64_t sliceCount(std::uint64_t size, std::uint64_t sliceSize) {
    return size / sliceSize + (size % sliceSize != 0);
}

std::size_t largestCount(int logOfSliceSize) {
    return (kLargestField - extra::kHeaderSize - kPreambleSize) /
           (sizeDigits(logOfSliceSize) + kCrcDigits);
}

// Joins every two neighbours; `sliceSize` is what they have and `size` what all have.
void mergePairs(std::vector<SliceTable::Slice>& slices, std::uint64_t sliceSize,
                std::uint64_t size) {
    std::size_t merged = 0;
    for (std::size_t i = 0; i < slices.size(); i += 2, ++merged) {
        SliceTable::Slice joined = slices[i];
        if (i + 1 < slices.size()) {
            const std::uint64_t sizeOfSecond = std::min(sliceSize, size - (i + 1) * sliceSize);
            joined.compressedSize += slices[i + 1].compressedSize;
            joined.crc32 = joinedCrc32(joined.crc32, slices[i + 1].crc32, sizeOfSecond);
        }
        slices[merged] = joined;
    }
    slices.resize(merged);
}

bool isTable(Bytes field) {
    return field.size() >= kPreambleSize && asText(field).starts_with(kSignature) &&
           asText(field)[kSignature.size()] == kVersion;
}

std::optional<SliceTable> parse(Bytes field, std::uint64_t size, std::uint64_t compressedSize) {
    if (!isTable(field)) return std::nullopt;
    const int log = std::to_integer<int>(field[kSignature.size() + 1]);
    if (log < kSmallestLog || log > kLargestLog) return std::nullopt;
    field = field.subspan(kPreambleSize);
    SliceTable table{.sliceSize = std::uint64_t{1} << log};
    const std::size_t sliceRecord = sizeDigits(log) + kCrcDigits;
    const std::size_t count = field.size() / sliceRecord;
    if (count == 0 || field.size() % sliceRecord != 0 ||
        count != sliceCount(size, table.sliceSize)) {
        return std::nullopt;
    }
    std::uint64_t total = 0;
    for (table.slices.reserve(count); !field.empty();) {
        const auto sliceSize = takeDigits(field, sizeDigits(log));
        const auto crc = takeDigits(field, kCrcDigits);
        if (!sliceSize || *sliceSize == 0 || !crc || *crc > 0xFFFFFFFF) return std::nullopt;
        total += *sliceSize;
        table.slices.push_back({*sliceSize, static_cast<std::uint32_t>(*crc)});
    }
    if (total != compressedSize) return std::nullopt;
    return table;
}

}  // namespace

std::string sliceField(std::vector<SliceTable::Slice> slices, std::uint64_t size) {
    if (slices.size() < kFewestSlices) return {};
    int log = kSmallestLog;
    for (; slices.size() > largestCount(log); ++log)
        mergePairs(slices, std::uint64_t{1} << log, size);
    std::string content(kSignature);
    content.push_back(kVersion);
    content.push_back(static_cast<char>(log));
    for (const SliceTable::Slice& slice : slices) {
        appendDigits(content, slice.compressedSize, sizeDigits(log));
        appendDigits(content, slice.crc32, kCrcDigits);
    }
    return extraField(extra::kSlices, content);
}

bool hasSliceTable(Bytes extraFields) {
    const auto field = findExtra(extraFields, extra::kSlices);
    return field && isTable(field->content);
}

std::optional<SliceTable> findSliceTable(Bytes extraFields, std::uint64_t size,
                                         std::uint64_t compressedSize) {
    const auto field = findExtra(extraFields, extra::kSlices);
    return field ? parse(field->content, size, compressedSize) : std::nullopt;
}

}  // namespace opc::zip
