#include "platform/opc/src/salvage/DamagedFile.hpp"

#include "platform/opc/src/zip/CompressionMethods.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace opc::zip {

namespace {

using namespace format;

constexpr std::size_t kBlock = std::size_t{1} << 20;
// The highest version of the format that a writer may say a reader needs (6.3).
constexpr unsigned kHighestVersion = 63;
// As long as a path may be. Headers in hostile data may overlap, and the bound keeps a search from
// reading a long name for each of them.
constexpr std::size_t kLongestName = 4096;

// Whether bytes can be the name of an item: it is not empty and holds no control characters.
bool isItemName(std::string_view name) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' '; };
    return !name.empty() && name.size() <= kLongestName && std::ranges::none_of(name, isControl);
}

// Whether the fields in front of the name can be those of a local header whose signature is
// damaged.
bool areLikelyFields(Bytes fixed) {
    return findMethod(Method{load16(fixed, local::kMethod)}) != nullptr &&
           load16(fixed, local::kVersionNeeded) <= kHighestVersion;
}

bool isOtherRecord(std::uint32_t signature) {
    return signature == central::kSignature || signature == end::kSignature ||
           signature == zip64end::kSignature || signature == descriptor::kSignature;
}

ZipItem itemOf(Bytes header) {
    ZipItem item;
    item.nameIsUtf8 = (load16(header, local::kFlags) & flag::kUtf8) != 0;
    item.method = Method{load16(header, local::kMethod)};
    item.crc32 = load32(header, local::kCrc);
    item.size = load32(header, local::kSize);
    item.compressedSize = load32(header, local::kCompressedSize);
    return item;
}

void readWideSizes(ZipItem& item, Bytes extraFields) {
    const auto wide = findExtra(extraFields, extra::kZip64);
    if (!wide || wide->content.size() < 2 * sizeof(std::uint64_t)) return;
    if (item.size == kInZip64_32) item.size = load64(wide->content, 0);
    if (item.compressedSize == kInZip64_32) {
        item.compressedSize = load64(wide->content, sizeof(std::uint64_t));
    }
}

}  // namespace

std::vector<std::byte> SalvageSource::at(std::uint64_t offset, std::uint64_t count) const {
    std::vector<std::byte> found(offset < size ? std::min(count, size - offset) : std::uint64_t{0});
    found.resize(bytes->readAt(found, offset));
    return found;
}

std::optional<std::uint32_t> SalvageSource::number(std::uint64_t offset) const {
    const auto found = at(offset, sizeof(std::uint32_t));
    if (found.size() < sizeof(std::uint32_t)) return std::nullopt;
    return load32(found, 0);
}

bool Ranges::overlap(std::uint64_t from, std::uint64_t to) const {
    const auto next = endOf_.upper_bound(from);
    return (next != endOf_.begin() && std::prev(next)->second > from) ||
           (next != endOf_.end() && next->first < to);
}

std::optional<std::uint64_t> Ranges::endAround(std::uint64_t place) const {
    const auto next = endOf_.upper_bound(place);
    if (next == endOf_.begin() || std::prev(next)->second <= place) return std::nullopt;
    return std::prev(next)->second;
}

void Ranges::add(std::uint64_t from, std::uint64_t to) {
    if (from >= to) return;
    auto next = endOf_.upper_bound(from);
    if (next != endOf_.begin() && std::prev(next)->second > from) --next;
    while (next != endOf_.end() && next->first < to) {
        from = std::min(from, next->first);
        to = std::max(to, next->second);
        next = endOf_.erase(next);
    }
    endOf_.emplace(from, to);
}

std::vector<std::pair<std::uint64_t, std::uint64_t>> Ranges::gaps(std::uint64_t size) const {
    std::vector<std::pair<std::uint64_t, std::uint64_t>> gaps;
    std::uint64_t from = 0;
    for (const auto& [start, end] : endOf_) {
        gaps.emplace_back(from, start);
        from = end;
    }
    gaps.emplace_back(from, size);
    return gaps;
}

SignatureSearch::SignatureSearch(const SalvageSource& source, std::uint32_t signature)
    : source_(&source) {
    append(signature_, signature);
}

std::optional<std::uint64_t> SignatureSearch::next(std::uint64_t from, std::uint64_t to) {
    while (from + signature_.size() <= to) {
        if (!isLoaded(from)) {
            from = source_->bytes->nextData(from);
            if (from + signature_.size() > to) return std::nullopt;
            load(from, to);
            if (!isLoaded(from)) return std::nullopt;  // the file ends here
        }
        const std::string_view held =
            asText(Bytes(block_)).substr(0, std::min<std::uint64_t>(block_.size(), to - start_));
        const std::size_t at = held.find(signature_, from - start_);
        if (at != std::string_view::npos) return start_ + at;
        from = start_ + held.size() - signature_.size() + 1;
    }
    return std::nullopt;
}

bool SignatureSearch::isLoaded(std::uint64_t from) const {
    return from >= start_ && from + signature_.size() <= start_ + block_.size();
}

void SignatureSearch::load(std::uint64_t from, std::uint64_t to) {
    start_ = from;
    block_ = source_->at(from, std::min<std::uint64_t>(kBlock, to - from));
}

bool LocalHeader::isMeasured() const {
    return (flags & flag::kDescriptor) != 0 && (item.compressedSize == 0 || item.size == 0);
}

std::optional<std::uint64_t> LocalHeader::claimedEnd() const {
    const std::uint64_t size = item.method == Method::Stored
                                   ? std::max(item.size, item.compressedSize)
                                   : item.compressedSize;
    const bool isEmpty = size == 0 && item.size == 0 && item.crc32 == 0;
    if (isMeasured() || size == kInZip64_32 || (size == 0 && !isEmpty)) return std::nullopt;
    const std::uint64_t claimed = item.dataOffset + size;
    return claimed < size ? UINT64_MAX : claimed;
}

bool LocalHeader::isIncomplete() const {
    return (flags & flag::kDescriptor) != 0 &&
           (item.crc32 == 0 || item.size == 0 || item.compressedSize == 0);
}

bool LocalHeader::agreesWith(const ZipItem& record) const {
    const auto agrees = [this](std::uint64_t here, std::uint64_t there) {
        return here == there || (here == 0 && (flags & flag::kDescriptor) != 0);
    };
    return item.name == record.name && agrees(item.crc32, record.crc32) &&
           agrees(item.size, record.size) && agrees(item.compressedSize, record.compressedSize);
}

std::optional<LocalHeader> localHeaderAt(const SalvageSource& source, std::uint64_t offset,
                                         Place place) {
    const auto fixed = source.at(offset, local::kHeaderSize);
    if (fixed.size() < local::kHeaderSize) return std::nullopt;
    const std::uint32_t signature = load32(fixed, 0);
    const bool isSigned = signature == local::kSignature, isExpected = place == Place::Expected;
    if (!isSigned && (!isExpected || isOtherRecord(signature) || !areLikelyFields(fixed))) {
        return std::nullopt;
    }
    const std::uint64_t nameAt = offset + local::kHeaderSize;
    const std::size_t nameSize = load16(fixed, local::kNameLength);
    const std::size_t extraSize = load16(fixed, local::kExtraLength);
    const bool isLong = nameSize > kLongestName && !isExpected;
    if (isLong || nameAt + nameSize + extraSize > source.size) return std::nullopt;
    LocalHeader found{itemOf(fixed), load16(fixed, local::kFlags)};
    found.item.name = asText(source.at(nameAt, nameSize));
    if (!isItemName(found.item.name) && !(isSigned && isExpected && nameSize > 0))
        return std::nullopt;
    if (found.item.size == kInZip64_32 || found.item.compressedSize == kInZip64_32) {
        readWideSizes(found.item, source.at(nameAt + nameSize, extraSize));
    }
    found.item.headerOffset = offset;
    found.item.dataOffset = nameAt + nameSize + extraSize;
    return found;
}

bool mayBeHeaderAt(const SalvageSource& source, std::uint64_t offset) {
    const auto fixed = source.at(offset, local::kHeaderSize);
    return fixed.size() == local::kHeaderSize && load32(fixed, 0) == local::kSignature &&
           load16(fixed, local::kVersionNeeded) <= kHighestVersion &&
           load16(fixed, local::kNameLength) != 0;
}

std::string nameInHeader(const SalvageSource& source, std::uint64_t offset) {
    const auto fixed = source.at(offset, local::kHeaderSize);
    if (fixed.size() < local::kHeaderSize) return {};
    const std::size_t size = load16(fixed, local::kNameLength);
    const auto name = source.at(offset + local::kHeaderSize, size);
    return name.size() == size && isItemName(asText(name)) ? std::string(asText(name)) : "";
}

std::size_t descriptorSize(const SalvageSource& source, std::uint64_t offset,
                           const ZipItem& record) {
    return descriptor::sizeAtFront(source.at(offset, descriptor::kLargest), record.crc32,
                                   record.compressedSize, record.size);
}

std::optional<std::uint64_t> endOfSame(const SalvageSource& source, const LocalHeader& header,
                                       const ZipItem& record) {
    if (!header.agreesWith(record)) return std::nullopt;
    const std::uint64_t end = header.item.dataOffset + record.compressedSize;
    if ((header.flags & flag::kDescriptor) == 0) return end;
    const std::size_t size = descriptorSize(source, end, record);
    return size == 0 && header.isIncomplete() ? std::nullopt : std::optional(end + size);
}

std::uint64_t centralRecordSize(const SalvageSource& source, std::uint64_t offset) {
    const auto fixed = source.at(offset, central::kHeaderSize);
    if (fixed.size() < central::kHeaderSize || load32(fixed, 0) != central::kSignature) return 0;
    const std::uint64_t size = central::kHeaderSize + load16(fixed, central::kNameLength) +
                               load16(fixed, central::kExtraLength) +
                               load16(fixed, central::kCommentLength);
    return size <= source.size - offset ? size : 0;
}

}  // namespace opc::zip
