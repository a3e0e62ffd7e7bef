#include "platform/opc/src/salvage/ArchivesWithin.hpp"

#include <opc/Exception.hpp>
#include <opc/ZipArchive.hpp>

#include "platform/opc/src/salvage/CandidateArchive.hpp"
#include "platform/opc/src/salvage/ForeignRecords.hpp"
#include "platform/opc/src/salvage/ItemReader.hpp"
#include "platform/opc/src/salvage/SearchBudget.hpp"
#include "platform/opc/src/zip/Directory.hpp"
#include "platform/opc/src/zip/ZipError.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace opc::zip {

namespace {

using namespace format;

// The budget of a search in bytes that are read, because hostile end records can all point to the
// same large directory. It is kWorkPerByte for each byte of the file plus kWork. Each signature
// that is found costs at least kAttempt.
constexpr std::uint64_t kWorkPerByte = 2;
constexpr std::uint64_t kWork = std::uint64_t{64} << 20;
constexpr std::uint64_t kAttempt = 64;

class Search {
public:
    explicit Search(const SalvageSource& source)
        : source_(&source),
          work_(kWork + kWorkPerByte * source.size),
          budget_(source.size),
          reader_(source, budget_) {}

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
        EndPlace place{{load16(record, end::kCount), load32(record, end::kDirectorySize),
                        load32(record, end::kDirectoryOffset)},
                       0,
                       at,
                       at + end::kRecordSize};
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

    // Throws Exception if the directory is damaged, also if a part of it is there twice.
    std::vector<ZipItem> itemsOf(const EndPlace& place) const {
        const std::string text(asText(source_->at(place.start, place.stated.size)));
        auto items = readDirectory(text, place.stated.count, *source_->file);
        std::set<std::pair<std::string_view, std::uint64_t>> known;
        for (ZipItem& item : items) {
            item.directoryRecord = {};
            if (!known.emplace(item.name, item.headerOffset).second)
                throwZipError(*source_->file, "lists an item twice");
        }
        return items;
    }

    void readArchive(EndPlace place) {
        try {
            const auto items = itemsOf(place);
            CandidateArchive archive(*source_, place, items);
            if (!archive.isConfirmedAtShift() && spend(place.start)) {
                // The end record may be wrong about where the directory is.
                if (const auto layout = layoutOf(items, place.start)) {
                    place.stated.offset = place.start - static_cast<std::uint64_t>(layout->shift);
                    place.isStated = false;
                    archive = CandidateArchive(*source_, place, items);
                }
            }
            if (archive.isConfirmed() || hasOnlyItsItems(items, place.start))
                settle(std::move(archive));
        } catch (const Exception&) {
            // The directory is damaged, so the search for single records has to find its items.
        }
    }

    // Takes the last records of the file for its directory if no end record says what that is, for
    // example because the file was cut.
    void readWithoutEnd() {
        std::uint64_t start = 0, end = 0, count = 0;
        bool isDamaged = false;  // the lengths of a record reach over the next one
        SignatureSearch search(*source_, central::kSignature);
        while (const auto at = search.next(end, source_->size)) {
            if (!spend(kAttempt)) return;
            const std::uint64_t size = centralRecordSize(*source_, *at);
            const bool isNext = *at == end && count != 0;
            if (!isNext) start = *at;
            isDamaged = isNext && isDamaged;
            count = size == 0 ? 0 : isNext ? count + 1 : 1;
            end = *at + std::max<std::uint64_t>(size, sizeof central::kSignature);
            isDamaged = isDamaged || search.next(*at + sizeof central::kSignature, end);
        }
        if (isDamaged || count == 0 || isContradicted(end, count, end - start)) return;
        if (lastRecord_ >= end || !spend(end - start)) return;
        try {
            EndPlace place{{count, end - start, start}, start, end, end, false};
            auto items = itemsOf(place);
            const auto layout = layoutOf(items, start);
            if (!layout) return;
            place.stated.offset = start - static_cast<std::uint64_t>(layout->shift);
            CandidateArchive archive(*source_, place, std::move(items));
            if (!archive.isConfirmed()) return;
            ForeignRecords foreign(*source_, archive, reader_);
            if (!hasNothingInFront(archive, foreign)) return;
            // Items that it does not list may have had records in the part of it that is lost.
            if (layout->hasOtherItems) return;
            found_.own = archive.takeDirectory();
            found_.own->mayLackRecords = layout->hasRoom;
        } catch (const Exception&) {
            // Damaged, too.
        }
    }

    // Whether an end record at `at` says that there are other records than these in front of it.
    bool isContradicted(std::uint64_t at, std::uint64_t count, std::uint64_t size) const {
        const auto record = source_->at(at, end::kRecordSize);
        return record.size() == end::kRecordSize && load32(record, 0) == end::kSignature &&
               load16(record, end::kCount) != count && load32(record, end::kDirectorySize) != size;
    }

    // The local headers in front of a directory.
    struct Headers {
        struct OfItem {
            const ZipItem* item;
            std::uint64_t at, end;  // where the header is, and where its item ends
        };
        std::vector<OfItem> ofItems;  // those that say what the directory does
        bool hasOtherNames = false;   // there are some of names that it does not list
        bool hasOtherItems = false;   // and whole items are among these, not within one of its own
    };

    // Nullopt if the budget is used up.
    std::optional<Headers> headersOf(const std::vector<ZipItem>& items, std::uint64_t start) {
        std::map<std::string_view, const ZipItem*> byName;
        for (const ZipItem& item : items)
            byName.emplace(item.name, &item);
        Headers headers;
        Ranges itsBytes;  // of the items in headers.ofItems
        SignatureSearch search(*source_, local::kSignature);
        std::uint64_t from = 0;
        while (const auto at = search.next(from, start)) {
            from = *at + sizeof local::kSignature;
            if (!spend(kAttempt)) return std::nullopt;
            const auto header = localHeaderAt(*source_, *at);
            if (!header) continue;
            const auto found = byName.find(header->item.name);
            if (found == byName.end()) {
                headers.hasOtherNames = true;
                headers.hasOtherItems =
                    headers.hasOtherItems ||
                    (!itsBytes.endAround(*at) && reader_.wholeItem(*header, start));
            } else if (const auto end = endOfSame(*source_, *header, *found->second)) {
                headers.ofItems.push_back({found->second, *at, *end});
                itsBytes.add(*at, *end);
            }
        }
        return headers;
    }

    // Whether no whole items are in front of the directory at `start` but those that it lists.
    bool hasOnlyItsItems(const std::vector<ZipItem>& items, std::uint64_t start) {
        const auto headers = spend(start) ? headersOf(items, start) : std::nullopt;
        return headers && !headers->hasOtherItems;
    }

    // Where the items of a directory are if no end record says it.
    struct Layout {
        // How far the last item is from where its record says, if the directory directly follows
        // it, and otherwise most items.
        std::int64_t shift;
        // Whether there is room for a record between the last item and the directory, so that it
        // may lack one.
        bool hasRoom;
        bool hasOtherItems;  // whether there are whole items of names that it does not list
    };

    // The layout of the items of the directory at `start`. Nullopt if its last item was not found,
    // if that does not end at `start` and there are headers of names that it does not list, or if
    // the budget is used up.
    std::optional<Layout> layoutOf(const std::vector<ZipItem>& items, std::uint64_t start) {
        const auto headers = headersOf(items, start);
        if (!headers) return std::nullopt;
        const auto last = std::ranges::max_element(items, {}, &ZipItem::headerOffset);
        std::vector<std::uint64_t> lastEnds;
        std::map<std::int64_t, std::size_t> counts;
        bool isJoined = false;
        std::int64_t joined = 0;
        for (const auto& [item, at, end] : headers->ofItems) {
            const auto shift = static_cast<std::int64_t>(at - item->headerOffset);
            ++counts[shift];
            if (item != &*last) continue;
            lastEnds.push_back(end);
            if (end != start) continue;
            isJoined = true;
            joined = shift;
        }
        if (lastEnds.empty() || (!isJoined && headers->hasOtherNames)) return std::nullopt;
        const auto most = std::ranges::max_element(counts, {}, [](const auto& count) {
            return std::pair(count.second, count.first == 0);
        });
        const bool hasRoom = std::ranges::none_of(lastEnds, [&](std::uint64_t end) {
            return end <= start && start - end <= central::kHeaderSize;
        });
        return Layout{isJoined ? joined : most->first, hasRoom, headers->hasOtherItems};
    }

    // Of several archives that could be the file's own, the last one contains all others.
    void settle(CandidateArchive archive) {
        ForeignRecords foreign(*source_, archive, reader_);
        const bool isOwn = isLast(archive, foreign) && hasNothingInFront(archive, foreign);
        if (archive.isConfirmed()) addOther(archive, foreign);
        if (isOwn) found_.own = archive.takeDirectory();
    }

    void addOther(const CandidateArchive& archive, ForeignRecords& foreign) {
        const bool isAffordable = spend(archive.end() - archive.start());
        found_.others.add(isAffordable ? foreign.front() : archive.start(), archive.end());
    }

    bool hasNothingInFront(const CandidateArchive& archive, ForeignRecords& foreign) {
        return spend(archive.firstOwn()) && !foreign.hasItemsInFront() && !budget_.isUsedUp();
    }

    bool isLast(const CandidateArchive& archive, ForeignRecords& foreign) {
        if (lastRecord_ < archive.end()) return true;
        if (!archive.isConfirmed()) return false;
        const std::uint64_t first = foreign.firstBehind();
        return spend(first - archive.end()) && first == source_->size;
    }

    const SalvageSource* source_;
    std::uint64_t work_;
    SearchBudget budget_;  // of reader_
    ItemReader reader_;
    std::uint64_t lastRecord_ = 0;
    ArchivesWithin found_;
};

}  // namespace

ArchivesWithin findArchives(const SalvageSource& source) {
    return Search(source).run();
}

}  // namespace opc::zip
