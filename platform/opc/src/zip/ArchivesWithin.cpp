#include "platform/opc/src/zip/ArchivesWithin.hpp"

#include <opc/Exception.hpp>

#include "platform/opc/src/zip/Directory.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

namespace opc::zip {

namespace {

using namespace format;

// The budget of a search in bytes that are read, because hostile end records can all point to the
// same large directory. It is kWorkPerByte for each byte of the file plus kWork. Each signature
// that is found costs at least kAttempt.
constexpr std::uint64_t kWorkPerByte = 2;
constexpr std::uint64_t kWork = std::uint64_t{64} << 20;
constexpr std::uint64_t kAttempt = 64;
constexpr std::uint64_t kPiece = std::uint64_t{128} << 10;

// An end record and the directory that is right in front of it.
struct EndPlace {
    DirectoryRecord stated;    // what the end record says of the directory
    std::uint64_t start, end;  // where the directory really is
    std::uint64_t fileEnd;     // where the archive ends, with its comment
};

// An archive whose directory could be read. Finds out where its offsets count from and whether it
// is the file's own.
class Archive {
public:
    Archive(const SalvageSource& source, const EndPlace& place, std::vector<ZipItem> items)
        : source_(&source), fileEnd_(place.fileEnd) {
        directory_.items = std::move(items);
        directory_.offset = place.stated.offset;
        directory_.shift = static_cast<std::int64_t>(place.start - place.stated.offset);
        findBase();
    }

    // Whether there is a matching local header for at least one of its items.
    bool isConfirmed() const { return isConfirmed_; }
    std::uint64_t start() const {
        return static_cast<std::uint64_t>(std::max<std::int64_t>(base_, 0));
    }
    std::uint64_t end() const { return fileEnd_; }

    // Whether there are items in front of the archive that it does not list: it is then the content
    // of an item of another archive. The file's first sectors, if they are there twice, are no such items.
    bool hasForeignItems() const {
        if (isStartTwice()) return false;
        if (isForeign(0, Place::Expected)) return true;
        SignatureSearch search(*source_, local::kSignature);
        std::uint64_t from = 0;
        while (const auto at = search.next(from, start())) {
            if (isForeign(*at, Place::Any)) return true;
            from = *at + sizeof local::kSignature;
            const auto end = endOfOwn(*at);
            if (!end) continue;
            from = std::max(from, *end);
            if (isForeign(from, Place::Expected)) return true;
        }
        return false;
    }

    // The offset of the first record after the archive that is not a copy of one of its own, as there
    // are if the last sectors of the file are there twice. The size of the file if there is none.
    std::uint64_t foreignRecordBehind() const {
        std::uint64_t first = source_->size, from = fileEnd_;
        SignatureSearch headers(*source_, local::kSignature);
        while (const auto at = headers.next(from, first)) {
            from = *at + sizeof local::kSignature;
            if (isForeignHeader(*at)) first = *at;
        }
        SignatureSearch records(*source_, central::kSignature);
        from = fileEnd_;
        while (const auto at = records.next(from, first)) {
            const std::uint64_t size = centralRecordSize(*source_, *at);
            if (size != 0 && isForeignRecord(*at, size)) first = *at;
            from = *at + std::max<std::uint64_t>(size, sizeof central::kSignature);
        }
        return first;
    }

    WholeDirectory takeDirectory() { return std::move(directory_); }

private:
    // The archive starts where most of its items' offsets count from. If bytes were put into the
    // file, the items in front of those bytes are still at the offsets that the directory says.
    void findBase() {
        const auto shifted = confirmedAtShift(), stated = confirmedInFront();
        const bool isShifted = shifted.size() >= stated.size();
        base_ = isShifted ? directory_.shift : 0;
        isConfirmed_ = !shifted.empty() || !stated.empty();
        for (std::size_t i = 0; i < directory_.items.size(); ++i) {
            const ZipItem& item = directory_.items[i];
            byName_.emplace(item.name, i);
            if (shifted.contains(i)) continue;
            const auto header = localHeaderAt(*source_, item.headerOffset);
            if (!header || header->item.name == item.name || !isAround(*header))
                inFront_.emplace(item.headerOffset, i);
        }
    }

    // Whether the archive is in the data that a header claims.
    bool isAround(const LocalHeader& header) const {
        const std::uint64_t claimed = header.claimedEnd().value_or(0);
        return header.item.dataOffset <= start() && fileEnd_ <= claimed && claimed <= source_->size;
    }

    bool isForeign(std::uint64_t at, Place place) const {
        if (at >= start() || inFront_.contains(at)) return false;
        const auto header = localHeaderAt(*source_, at, place);
        if (header && listedEnd(*header)) return false;
        const bool isWhole = header && header->item.dataOffset <= start();
        return isWhole || (place == Place::Expected && source_->number(at) == local::kSignature);
    }

    bool isForeignHeader(std::uint64_t at) const {
        const auto header = localHeaderAt(*source_, at);
        return header && !listedEnd(*header);
    }

    bool isForeignRecord(std::uint64_t at, std::uint64_t size) const {
        try {
            const auto record = source_->at(at, size);
            const std::string text(asText(record));
            const ZipItem item = readDirectory(text, 1, *source_->file).front();
            const auto found = byName_.find(item.name);
            if (found == byName_.end()) return true;
            const ZipItem& own = directory_.items[found->second];
            return std::tie(item.crc32, item.size, item.compressedSize, item.headerOffset) !=
                   std::tie(own.crc32, own.size, own.compressedSize, own.headerOffset);
        } catch (const Exception&) {
            return true;  // who knows whose
        }
    }

    // Whether all that is in front of the archive is a copy of its first bytes.
    bool isStartTwice() const {
        for (std::uint64_t from = 0; from < start(); from += kPiece) {
            const std::uint64_t piece = std::min(kPiece, start() - from);
            if (source_->at(from, piece) != source_->at(start() + from, piece)) return false;
        }
        return true;
    }

    // The end of the item of a header if the directory lists that item, and not only its name: an
    // archive around this one mostly has items of the same names.
    std::optional<std::uint64_t> listedEnd(const LocalHeader& header) const {
        const auto found = byName_.find(header.item.name);
        if (found == byName_.end()) return std::nullopt;
        return endOfSame(*source_, header, directory_.items[found->second]);
    }

    // The end of the archive's own item whose local header is at the offset `at`; nullopt if there
    // is none.
    std::optional<std::uint64_t> endOfOwn(std::uint64_t at) const {
        const auto header = localHeaderAt(*source_, at);
        if (!header) return std::nullopt;
        if (const auto end = listedEnd(*header)) return end;
        const auto found = inFront_.find(at);
        if (found == inFront_.end()) return std::nullopt;
        return header->item.dataOffset + directory_.items[found->second].compressedSize;
    }

    // The indexes of the items whose local headers are where the directory really is shifted to.
    // No other archive has a header of the same name at the same distance from this directory.
    std::set<std::size_t> confirmedAtShift() const {
        return confirmed([this](const ZipItem& item) {
            const auto header = localHeaderAt(
                *source_, item.headerOffset + static_cast<std::uint64_t>(directory_.shift));
            return header && header->agreesWith(item);
        });
    }

    // The indexes of the items that are at the offsets that the directory says. An archive around
    // this one may have items of the same names there.
    std::set<std::size_t> confirmedInFront() const {
        return confirmed([this](const ZipItem& item) {
            const auto header = localHeaderAt(*source_, item.headerOffset);
            return header && endOfSame(*source_, *header, item).has_value();
        });
    }

    template <typename Check>
    std::set<std::size_t> confirmed(Check isConfirmed) const {
        std::set<std::size_t> indexes;
        for (std::size_t i = 0; i < directory_.items.size(); ++i) {
            if (isConfirmed(directory_.items[i])) indexes.insert(i);
        }
        return indexes;
    }

    const SalvageSource* source_;
    std::uint64_t fileEnd_;
    WholeDirectory directory_;
    std::int64_t base_ = 0;
    bool isConfirmed_ = false;
    // Indexes of items in front of base_, by header offset.
    std::map<std::uint64_t, std::size_t> inFront_;
    std::map<std::string, std::size_t> byName_;
};

class Search {
public:
    explicit Search(const SalvageSource& source)
        : source_(&source), work_(kWork + kWorkPerByte * source.size) {}

    ArchivesWithin run() {
        findLastRecord();
        SignatureSearch search(*source_, end::kSignature);
        std::uint64_t from = 0;
        while (const auto at = search.next(from, source_->size)) {
            from = *at + sizeof end::kSignature;
            if (!spend(kAttempt)) break;
            const auto place = placeOf(*at);
            if (place && spend(place->end - place->start)) readArchive(*place);
        }
        if (!found_.own) readWithoutEnd();
        return std::move(found_);
    }

private:
    bool spend(std::uint64_t amount) {
        work_ -= std::min(work_, amount);
        return work_ > 0;
    }

    // Finds the last local header or directory record of the file, after which its own end record
    // is.
    void findLastRecord() {
        for (const auto signature : {local::kSignature, central::kSignature}) {
            SignatureSearch search(*source_, signature);
            std::uint64_t from = 0;
            while (const auto at = search.next(from, source_->size)) {
                from = *at + sizeof signature;
                if (!spend(kAttempt)) {
                    lastRecord_ = source_->size;
                    return;
                }
                const bool isRecord = signature == local::kSignature
                                          ? localHeaderAt(*source_, *at).has_value()
                                          : centralRecordSize(*source_, *at) != 0;
                if (isRecord) lastRecord_ = std::max(lastRecord_, *at);
            }
        }
    }

    std::optional<EndPlace> placeOf(std::uint64_t at) const {
        const auto record = source_->at(at, end::kRecordSize);
        if (record.size() < end::kRecordSize) return std::nullopt;
        EndPlace place{
            {load16(record, end::kCount), load32(record, end::kDirectorySize),
             load32(record, end::kDirectoryOffset)},
            0,
            at,
            std::min<std::uint64_t>(at + end::kRecordSize + load16(record, end::kCommentLength),
                                    source_->size)};
        readWide(place);
        const DirectoryRecord& stated = place.stated;
        if (stated.count == 0 || stated.size > place.end ||
            stated.count > stated.size / central::kHeaderSize) {
            return std::nullopt;
        }
        place.start = place.end - stated.size;
        if (source_->number(place.start) != central::kSignature) return std::nullopt;
        return place;
    }

    // Takes the numbers from the zip64 records if they are right in front of the end record.
    void readWide(EndPlace& place) const {
        constexpr std::size_t kSize = zip64end::kRecordSize + zip64locator::kRecordSize;
        if (place.end < kSize) return;
        const auto record = source_->at(place.end - kSize, kSize);
        if (record.size() < kSize || load32(record, 0) != zip64end::kSignature ||
            load32(record, zip64end::kRecordSize) != zip64locator::kSignature) {
            return;
        }
        place.end -= kSize;
        place.stated = {load64(record, zip64end::kCount), load64(record, zip64end::kDirectorySize),
                        load64(record, zip64end::kDirectoryOffset)};
    }

    void readArchive(const EndPlace& place) {
        try {
            const auto bytes = source_->at(place.start, place.stated.size);
            const std::string text(asText(bytes));
            auto items = readDirectory(text, place.stated.count, *source_->file);
            for (ZipItem& item : items)
                item.directoryRecord = {};
            settle(Archive(*source_, place, std::move(items)));
        } catch (const Exception&) {
            // The directory is damaged, so the search for single records has to find its items.
        }
    }

    // Takes the last records of the file for its directory if no end record says what that is, for
    // example because the file was cut.
    void readWithoutEnd() {
        std::uint64_t start = 0, end = 0, count = 0;
        SignatureSearch search(*source_, central::kSignature);
        while (const auto at = search.next(end, source_->size)) {
            if (!spend(kAttempt)) return;
            const std::uint64_t size = centralRecordSize(*source_, *at);
            const bool isNext = *at == end && count != 0;
            if (!isNext) start = *at;
            count = size == 0 ? 0 : isNext ? count + 1 : 1;
            end = *at + std::max<std::uint64_t>(size, sizeof central::kSignature);
        }
        if (count == 0 || lastRecord_ >= end || !spend(end - start)) return;
        try {
            const std::string text(asText(source_->at(start, end - start)));
            auto items = readDirectory(text, count, *source_->file);
            const auto shift = shiftOf(items, start);
            if (!shift) return;
            const EndPlace place{
                {count, end - start, start - static_cast<std::uint64_t>(*shift)}, start, end, end};
            for (ZipItem& item : items)
                item.directoryRecord = {};
            Archive archive(*source_, place, std::move(items));
            if (!archive.isConfirmed() || !spend(archive.start()) || archive.hasForeignItems())
                return;
            found_.own = archive.takeDirectory();
        } catch (const Exception&) {
            // Damaged, too.
        }
    }

    // How far most items are from where their records say. Nullopt if the directory at `start` may lack
    // records, because its last item does not end there.
    std::optional<std::int64_t> shiftOf(const std::vector<ZipItem>& items, std::uint64_t start) {
        std::map<std::string_view, const ZipItem*> byName;
        for (const ZipItem& item : items)
            byName.emplace(item.name, &item);
        const auto last = std::ranges::max_element(items, {}, &ZipItem::headerOffset);
        bool isComplete = false;
        std::map<std::int64_t, std::size_t> counts;
        SignatureSearch search(*source_, local::kSignature);
        std::uint64_t from = 0;
        while (const auto at = search.next(from, start)) {
            from = *at + sizeof local::kSignature;
            if (!spend(kAttempt)) return std::nullopt;
            const auto header = localHeaderAt(*source_, *at);
            const auto found = header ? byName.find(header->item.name) : byName.end();
            if (found == byName.end()) continue;
            const auto itemEnd = endOfSame(*source_, *header, *found->second);
            if (!itemEnd) continue;
            ++counts[static_cast<std::int64_t>(*at - found->second->headerOffset)];
            isComplete = isComplete || (found->second == &*last && *itemEnd == start);
        }
        if (!isComplete) return std::nullopt;
        const auto most = std::ranges::max_element(counts, {}, [](const auto& count) {
            return std::pair(count.second, count.first == 0);
        });
        return most->first;
    }

    // Of several archives that could be the file's own, the last one contains all others.
    void settle(Archive archive) {
        const bool isAlone =
            isLast(archive) && spend(archive.start()) && !archive.hasForeignItems();
        if (archive.isConfirmed()) found_.others.add(archive.start(), archive.end());
        if (isAlone) found_.own = archive.takeDirectory();
    }

    bool isLast(const Archive& archive) {
        if (lastRecord_ < archive.end()) return true;
        if (!archive.isConfirmed()) return false;
        const std::uint64_t foreign = archive.foreignRecordBehind();
        return spend(foreign - archive.end()) && foreign == source_->size;
    }

    const SalvageSource* source_;
    std::uint64_t work_;
    std::uint64_t lastRecord_ = 0;
    ArchivesWithin found_;
};

}  // namespace

ArchivesWithin findArchives(const SalvageSource& source) {
    return Search(source).run();
}

}  // namespace opc::zip
