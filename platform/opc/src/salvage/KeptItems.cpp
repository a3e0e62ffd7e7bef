#include "platform/opc/src/salvage/KeptItems.hpp"

#include "platform/opc/src/salvage/ListedItem.hpp"
#include "platform/opc/src/salvage/StreamedItems.hpp"
#include "platform/opc/src/zip/CompressionMethods.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <cstddef>

namespace opc::zip {

Verdict KeptItems::keep(ZipItem item) {
    // Nothing shows where the data of an item without data is, so a wrong length in its header must
    // not claim the bytes of others.
    if (item.compressedSize == 0 && !hasLikelyFields(item)) {
        item.dataOffset = std::min<std::uint64_t>(
            item.dataOffset, item.headerOffset + format::local::kHeaderSize + item.name.size());
    }
    item.endOffset = item.dataOffset + item.compressedSize;
    if (item.endOffset > source_->size || item.endOffset < item.dataOffset)
        return lostBy(Loss::Cut);
    // Without a header at its place, which may be wrong, an item takes only its data, and none if
    // it is empty: two bytes of the deflated form of nothing are found in much data.
    const bool hasHeader = localHeaderAt(*source_, item.headerOffset).has_value();
    const std::uint64_t start = hasHeader        ? item.headerOffset
                                : item.size == 0 ? item.endOffset
                                                 : item.dataOffset;
    // The first byte of the header may stand for the last one of the data in front, if that is
    // missing.
    if (start < item.endOffset && bytes_.overlap(start + hasHeader, item.endOffset))
        return lostBy(Loss::Overlap);
    if (hasName(item.name) && !item.otherName.empty()) std::swap(item.name, item.otherName);
    if (hasName(item.name)) return lostBy(Loss::SameName);
    if (Verdict verdict = reader_->judge(item); !verdict.isKept()) return verdict;
    if (start < item.endOffset)
        bytes_.add(start, item.endOffset + descriptorSize(*source_, item.endOffset, item));
    names_.emplace(item.name, item);
    data_.insert(dataOf(item));
    item.directoryRecord = {};
    items_.push_back(std::move(item));
    return {};
}

Verdict KeptItems::keepByNumbers(LocalHeader& header, std::uint64_t limit,
                                 const std::function<std::optional<Loss>(ZipItem&)>& objection) {
    ZipItem& item = header.item;
    if (header.flags & format::flag::kAnyEncryption) return lostBy(Loss::Encrypted);
    if (findMethod(item.method) == nullptr)
        return lostBy(Loss::Method, "it " + methodFault(item.method));
    const DataEnd end = reader_->complete(header, limit);
    if (hasName(item.name)) return lostBy(Loss::SameName);
    if (end == DataEnd::Behind) return lostBy(limit == source_->size ? Loss::Cut : Loss::Overlap);
    if (end == DataEnd::Unknown) return lostBy(Loss::NoEnd);
    if (const auto loss = objection(item)) return lostBy(*loss);
    if (item.method != Method::Stored || item.size == item.compressedSize) return keep(item);
    for (const std::uint64_t size : {item.compressedSize, item.size}) {
        if (size == 0 && !isFollowedByRecord(*source_, item)) continue;
        ZipItem likely = item;
        likely.size = likely.compressedSize = size;
        if (keep(std::move(likely)).isKept()) return {};
    }
    return lostBy(Loss::TwoSizes);
}

// Whether what is between the name and the data can be extra fields.
bool KeptItems::hasLikelyFields(const ZipItem& item) const {
    const std::uint64_t from = item.headerOffset + format::local::kHeaderSize + item.name.size();
    if (item.dataOffset < from || item.dataOffset - from > kLikelyHeader) return false;
    const auto fields = source_->at(from, item.dataOffset - from);
    std::size_t end = 0;
    while (end + format::extra::kHeaderSize <= fields.size())
        end += format::extra::kHeaderSize + format::load16(fields, end + 2);
    return end == fields.size();
}

std::optional<Content> KeptItems::contentOf(const std::string& name) const {
    const auto found = names_.find(name);
    if (found == names_.end()) return std::nullopt;
    return found->second;
}

}  // namespace opc::zip
