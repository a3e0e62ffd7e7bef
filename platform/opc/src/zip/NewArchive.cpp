#include "platform/opc/src/zip/NewArchive.hpp"

#include <fl/FileDescriptor.hpp>
#include <foundation/Shown.hpp>
#include <opc/Exception.hpp>

#include "platform/opc/src/zip/ArchiveBytes.hpp"
#include "platform/opc/src/zip/Deflate.hpp"
#include "platform/opc/src/zip/Directory.hpp"
#include "platform/opc/src/zip/EndRecords.hpp"
#include "platform/opc/src/zip/NameIndex.hpp"
#include "platform/opc/src/zip/StoredBlocks.hpp"
#include "platform/opc/src/zip/StrayRecords.hpp"
#include "platform/opc/src/zip/ZipError.hpp"

#include <algorithm>
#include <iterator>
#include <span>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace opc::zip {

namespace {

class EndOfFile final : public ByteSink {
public:
    explicit EndOfFile(NewFile& file) : file_(&file) {}
    void append(std::span<const std::byte> bytes) override { file_->append(bytes); }

private:
    NewFile* file_;
};

}  // namespace

format::ItemRecord NewItem::recordAt(std::uint64_t offset) const {
    return {.name = name,
            .flags = flags,
            .method = static_cast<std::uint16_t>(method),
            .dosDateAndTime = dosDateAndTime,
            .crc32 = crc32,
            .compressedSize = compressedSize,
            .size = size,
            .offset = offset,
            .directoryFields = directoryFields};
}

ItemContent NewItem::contentIn(const fl::filesystem::path& file) const {
    ItemContent found{.method = method,
                      .crc32 = crc32,
                      .compressedSize = compressedSize,
                      .size = size,
                      .file = file,
                      .name = displayName(name, true)};
    if (const auto* memory = std::get_if<InMemory>(&content)) found.source = *memory;
    if (const auto* scratch = std::get_if<InScratchFile>(&content)) {
        found.source = scratch->file;
        found.offset = scratch->offset;
    }
    if (const auto* placed = std::get_if<InNewFile>(&content)) {
        found.source = placed->file;
        found.offset = placed->dataOffset;
    }
    return found;
}

NewArchive::NewArchive(const fl::filesystem::SaveTarget& target, const fl::filesystem::path& name,
                       std::shared_ptr<const ZipArchive> base, bool& isReporting)
    : target_(&target),
      name_(&name),
      base_(std::move(base)),
      isReporting_(&isReporting),
      file_(std::make_shared<NewFile>(target, name, isReporting)) {}

// The number of bytes in front of the base's first item.
std::uint64_t NewArchive::frontSize() const noexcept {
    return base_ && !base_->items().empty() ? base_->items().front().headerOffset : 0;
}

// Takes over the bytes in front of the base's first item, unless something has been written
// already: they come first, so they are there by then.
void NewArchive::appendFront() {
    if (file_->tail() == 0 && frontSize() != 0) file_->appendFrom(base_->file(), 0, frontSize());
}

// A range goes from the first item's header to the end of the last one, so gaps between items are
// left out. A range with the base's first item starts at the front of both files: then a file
// system that shares blocks has to copy only the last, incomplete block.
void NewArchive::appendKept(const std::vector<const ZipItem*>& items) {
    for (std::size_t i = 0; i < items.size();) {
        const bool isFirst = file_->tail() == 0 && items[i]->headerOffset == frontSize();
        if (!isFirst) appendFront();
        const std::uint64_t from = isFirst ? 0 : items[i]->headerOffset;
        const std::uint64_t to = file_->tail();
        std::uint64_t end = items[i]->headerOffset;
        for (; i < items.size() && items[i]->headerOffset == end; ++i) {
            end = items[i]->endOffset;
            placed_[to + items[i]->headerOffset - from] = {to + end - from, items[i], nullptr};
        }
        file_->appendFrom(base_->file(), from, end - from);
    }
}

void NewArchive::append(NewItem& item) {
    appendFront();
    const std::uint64_t begin = file_->tail();
    std::string header = format::localHeader(item.recordAt(begin), format::SizeRoom::Exact);
    const std::size_t headerSize = header.size();
    if (const auto* memory = std::get_if<NewItem::InMemory>(&item.content)) {
        file_->append(format::asBytes(header.append(format::asText((*memory)->bytes()))));
    } else {
        file_->append(format::asBytes(header));
        const auto& scratch = std::get<NewItem::InScratchFile>(item.content);
        file_->appendFrom(scratch.file->file(), scratch.offset, item.compressedSize);
    }
    placeFresh(item, begin, headerSize);
}

void NewArchive::startItem(const NewItem& item) {
    appendFront();
    writingFrom_ = file_->tail();
    // The final header will be as long, whatever its numbers are.
    writingHeader_ = format::localHeader(item.recordAt(0), format::SizeRoom::Growing).size();
    file_->reserve(writingHeader_);
    isWriting_ = true;
}

void NewArchive::endItem(NewItem& item) {
    const std::string header =
        format::localHeader(item.recordAt(writingFrom_), format::SizeRoom::Growing);
    file_->writeAt(format::asBytes(header), writingFrom_);
    placeFresh(item, writingFrom_, writingHeader_);
    isWriting_ = false;
}

void NewArchive::cancelItem() noexcept {
    if (!isWriting_ || !process_.isOfThisProcess()) return;
    isWriting_ = false;
    cutAt(writingFrom_);
}

void NewArchive::cutAt(std::uint64_t offset) noexcept {
    try {
        file_->cutAt(offset);
    } catch (...) {
        // The bytes are a gap now, which finish() closes. All exceptions are caught because there
        // may be no memory to make an opc::Exception.
    }
}

void NewArchive::placeFresh(NewItem& item, std::uint64_t begin, std::size_t headerSize) {
    item.content = NewItem::InNewFile{file_, begin + headerSize};
    placed_[begin] = {begin + headerSize + item.compressedSize, nullptr, &item};
}

void NewArchive::dropPlaced(PlacedItems::const_iterator dropped) noexcept {
    const auto [begin, placed] = *dropped;
    placed_.erase(dropped);
    if (placed.end == file_->tail()) cutAt(begin);
}

// A linear search is fast enough: only large items of the base are placed early enough to be
// dropped.
void NewArchive::drop(const ZipItem& item) noexcept {
    const auto found = std::find_if(placed_.begin(), placed_.end(),
                                    [&](const auto& each) { return each.second.kept == &item; });
    if (found != placed_.end()) dropPlaced(found);
}

// The item begins at the last place before its data, because its header is in front of the data.
void NewArchive::drop(const NewItem& item) noexcept {
    const auto* const content = std::get_if<NewItem::InNewFile>(&item.content);
    if (!content) return;
    const auto found = placed_.lower_bound(content->dataOffset);
    if (found == placed_.begin() || std::prev(found)->second.fresh != &item) return;
    dropPlaced(std::prev(found));
}

bool NewArchive::hasGaps() const {
    std::uint64_t end = frontSize();
    for (const auto& [begin, placed] : placed_) {
        if (begin != end) return true;
        end = placed.end;
    }
    return end != file_->tail();
}

// Copies the items into another new file, in the same order. Streams can still read the first one.
void NewArchive::closeGaps() {
    const auto placed = std::exchange(placed_, {});
    const auto old = file_;
    old->abandon();
    file_ = std::make_shared<NewFile>(*target_, *name_, *isReporting_);
    for (auto at = placed.begin(); at != placed.end();) {
        std::vector<const ZipItem*> kept;
        for (; at != placed.end() && at->second.kept; ++at)
            kept.push_back(at->second.kept);
        appendKept(kept);
        for (; at != placed.end() && at->second.fresh; ++at) {
            appendFront();
            NewItem& item = *at->second.fresh;
            const std::uint64_t begin = file_->tail();
            const std::uint64_t size = at->second.end - at->first;
            file_->appendFrom(old->file(), at->first, size);
            placeFresh(item, begin, size - item.compressedSize);
        }
    }
}

void NewArchive::refuseZip64(bool isNeeded, bool allowZip64) const {
    if (!isNeeded || allowZip64) return;
    throwZipError(*name_,
                  "would need the zip64 extensions (for 4 GiB or 65,535 items), which the program "
                  "does not allow");
}

std::string NewArchive::directory(bool allowZip64) const {
    std::string records;
    for (const auto& [begin, placed] : placed_) {
        if (placed.fresh) {
            const format::ItemRecord record = placed.fresh->recordAt(begin);
            refuseZip64(format::needsZip64(record), allowZip64);
            records += format::centralRecord(record);
        } else {
            const format::ItemRecord record{.compressedSize = placed.kept->compressedSize,
                                            .size = placed.kept->size,
                                            .offset = begin};
            refuseZip64(format::needsZip64(record), allowZip64);
            records += format::movedCentralRecord(placed.kept->directoryRecord, begin);
        }
    }
    return records;
}

format::DirectoryRecord NewArchive::writeEnd(bool allowZip64) {
    if (hasGaps()) closeGaps();
    appendFront();
    std::string records;
    try {
        records = directory(allowZip64);
    } catch (const std::length_error& error) {
        throwZipError(*name_, error.what());
    }
    const format::DirectoryRecord record{placed_.size(), records.size(), file_->tail()};
    refuseZip64(format::needsZip64(record), allowZip64);
    const std::string ends = format::endRecords(record, base_ ? base_->comment() : "");
    file_->append(format::asBytes(records + ends));
    return record;
}

fl::filesystem::FileStamp NewArchive::finish(bool allowZip64) {
    format::DirectoryRecord record = writeEnd(allowZip64);
    while (NewItem* const item = findMistakable(record)) {
        file_->cutAt(record.offset);
        deflateAgain(*item);
        record = writeEnd(allowZip64);
    }
    return file_->commit();
}

// A new item whose stored data holds what some reader would take for a record of this archive; null
// if the new file can be opened again. Throws if it cannot, for any other reason.
NewItem* NewArchive::findMistakable(const format::DirectoryRecord& record) const {
    const auto fail = [this](const Exception& fault) {
        std::string_view reason = fault.what();
        const std::string named = foundation::shown(*name_) + ": ";
        if (reason.starts_with(named)) reason.remove_prefix(named.size());
        throwZipError(
            *name_,
            std::string("was not saved, because it could not be opened again: ").append(reason));
    };
    // Throws if the disk is full, which is not to be taken for a fault of what is in the file.
    const fl::filesystem::FileDescriptor& file = file_->file();
    try {
        aboutFile(*name_, [&] {
            ArchiveBytes bytes(file, file_->tail(), kEndSearch);
            readArchiveEnd(bytes, *name_);
            std::string directory(record.size, '\0');
            bytes.copy(record.offset, std::as_writable_bytes(std::span(directory)));
            const auto items = readItems(directory, record, bytes, *name_);
            NameIndex(items, *name_).addResolvedNames(*name_);
        });
    } catch (const StrayRecord& fault) {
        const Placed* const placed = itemAt(fault.offset());
        if (placed && placed->fresh && placed->fresh->method == Method::Stored)
            return placed->fresh;
        if (placed && placed->kept) {
            throwZipError(*name_, "was not saved, because readers would take what " +
                                      placed->kept->displayName() +
                                      " holds for a record of the zip file; deflate that item "
                                      "first");
        }
        fail(fault);
    } catch (const Exception& fault) {
        fail(fault);
    }
    return nullptr;
}

// The item whose header, data or descriptor the byte at `offset` is in; null if there is none.
const NewArchive::Placed* NewArchive::itemAt(std::uint64_t offset) const {
    const auto next = placed_.upper_bound(offset);
    if (next == placed_.begin()) return nullptr;
    const Placed& placed = std::prev(next)->second;
    return offset < placed.end ? &placed : nullptr;
}

// At the end of the file; closeGaps() fills the old place. Nothing is compressed: the item is
// stored because it does not shrink, or because the caller wants it so.
void NewArchive::deflateAgain(NewItem& item) {
    NewItem deflated = item;
    deflated.method = Method::Deflated;
    const auto content = openItem(item.contentIn(*name_));
    startItem(deflated);
    const std::uint64_t dataOffset = file_->tail();
    EndOfFile sink(*file_);
    writeStoredBlocks(*content, sink);
    deflated.compressedSize = file_->tail() - dataOffset;
    drop(item);
    item = std::move(deflated);
    endItem(item);
}

}  // namespace opc::zip
