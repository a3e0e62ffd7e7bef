#include "platform/opc/src/salvage/ItemReader.hpp"

#include "platform/opc/src/zip/CompressionMethods.hpp"
#include "platform/opc/src/zip/ItemInput.hpp"
#include "platform/opc/src/zip/ZipError.hpp"

namespace opc::zip {

namespace {

constexpr std::size_t kPiece = std::size_t{128} << 10;

}  // namespace

DataEnd ItemReader::complete(LocalHeader& header, std::uint64_t limit) {
    if (header.isMeasured()) return streamed_.measure(header.item, limit);
    if (header.isIncomplete()) streamed_.readChecksum(header.item);
    return DataEnd::Known;
}

Verdict ItemReader::judge(const ZipItem& item) {
    const Numbers numbers{item.dataOffset, item.compressedSize, item.size, item.crc32, item.method};
    const auto known = faults_.find(numbers);
    if (known != faults_.end()) return lostBy(Loss::Content, known->second);
    if (budget_->isUsedUp()) return lostBy(Loss::NotTried);
    const auto fault = readThrough(item);
    if (!fault) return {};
    faults_.emplace(numbers, *fault);
    return lostBy(Loss::Content, *fault);
}

std::optional<ZipItem> ItemReader::wholeItem(LocalHeader header, std::uint64_t limit) {
    ZipItem& item = header.item;
    if (findMethod(item.method) == nullptr) return std::nullopt;
    if (complete(header, limit) != DataEnd::Known) return std::nullopt;
    item.endOffset = item.dataOffset + item.compressedSize;
    if (item.endOffset < item.dataOffset || item.endOffset > limit) return std::nullopt;
    if (!judge(item).isKept()) return std::nullopt;
    budget_->charge({item.dataOffset, item.endOffset, item.size});
    return item;
}

std::optional<std::string> ItemReader::readThrough(const ZipItem& item) {
    Reading reading{item.dataOffset, item.endOffset};
    try {
        const auto stream = openItem({.source = source_->bytes,
                                      .offset = item.dataOffset,
                                      .method = item.method,
                                      .crc32 = item.crc32,
                                      .compressedSize = item.compressedSize,
                                      .size = item.size,
                                      .name = item.displayName()});
        piece_.resize(kPiece);
        while (const std::size_t got = stream->read(piece_))
            reading.produced += got;
        return std::nullopt;
    } catch (const ItemError& error) {
        budget_->charge(reading);
        return error.fault();
    }
}

}  // namespace opc::zip
