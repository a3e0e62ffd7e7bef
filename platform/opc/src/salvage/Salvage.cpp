#include "platform/opc/src/salvage/Salvage.hpp"

#include <opc/Exception.hpp>

#include "platform/opc/src/salvage/ArchivesWithin.hpp"
#include "platform/opc/src/salvage/CandidateArchive.hpp"
#include "platform/opc/src/salvage/Failures.hpp"
#include "platform/opc/src/salvage/ItemReader.hpp"
#include "platform/opc/src/salvage/KeptItems.hpp"
#include "platform/opc/src/salvage/ListedItem.hpp"
#include "platform/opc/src/salvage/Loss.hpp"
#include "platform/opc/src/salvage/NameConflicts.hpp"
#include "platform/opc/src/salvage/SearchBudget.hpp"
#include "platform/opc/src/salvage/Sightings.hpp"
#include "platform/opc/src/salvage/StreamedItems.hpp"
#include "platform/opc/src/zip/CompressionMethods.hpp"
#include "platform/opc/src/zip/Directory.hpp"
#include "platform/opc/src/zip/NameIndex.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace opc::zip {

namespace {

using namespace format;

// One run over a damaged file. An item is kept, from the most trustworthy source first, when its
// bytes are still free and its content is whole; every other one becomes a failure. In the end,
// failures that nothing else explains are reported as lost.
class Salvage {
public:
    Salvage(const SalvageSource& source, std::span<const std::string> expected)
        : source_(&source),
          expected_(expected),
          budget_(source.size),
          reader_(source, budget_),
          kept_(source, reader_),
          failures_(source) {}

    Salvaged run() {
        ArchivesWithin archives = findArchives(*source_);
        isWhole_ = archives.own.has_value();
        if (isWhole_) {
            takeDirectory(*archives.own);
            if (archives.own->mayLackRecords) reportMissingRecords();
        } else {
            within_ = std::move(archives.others);
            followHeaders();
            searchRecords();
            takeWithoutHeaders();
        }
        searchHeaders();
        Salvaged found{
            .lost = failures_.lost(kept_, sightings_, isWhole_ ? source_->size : lastRecords_),
            .items = kept_.takeItems()};
        dropUnsure(found);
        dropConflicts(found);
        std::ranges::sort(found.items, {}, &ZipItem::headerOffset);
        return found;
    }

private:
    // Where the search for local headers is. An item there is surely the file's own if it directly
    // follows another such item, is at the front of the file, or follows an item that a directory
    // record lists.
    struct Position {
        std::uint64_t at;
        bool isSure = true;
    };

    // How far the local header bears out what a whole directory says of an item, in the order in
    // which such items are taken.
    enum class Trust { Confirmed, SameName, OtherName };

    // Takes the items of a whole directory. Those that their local headers confirm come first, so
    // that no damaged item takes their bytes, and then those whose name is the same in both records,
    // so that an item with a damaged name does not take the name of another.
    void takeDirectory(const WholeDirectory& directory) {
        isExact_ = directory.shift == 0;
        std::multiset<std::string_view> names;
        std::set<std::uint64_t> starts = {directory.offset};
        for (const ZipItem& item : directory.items) {
            names.insert(item.name);
            starts.insert(item.headerOffset);
        }
        struct PlacedItem {
            const ZipItem* item;
            std::vector<ZipItem> places;
        };
        std::map<Trust, std::vector<PlacedItem>> byTrust;
        for (const ZipItem& item : directory.items) {
            auto places = placesOf(*source_, item, directory.shift);
            if (names.count(item.name) > 1) preferLocalNames(places);
            byTrust[trustIn(item, places)].push_back({&item, std::move(places)});
        }
        for (const auto& [trust, items] : byTrust) {
            for (const auto& [item, places] : items) {
                const auto next = starts.upper_bound(item->headerOffset);
                takeListed(*item, places, next == starts.end() ? source_->size : *next);
            }
        }
    }

    // An empty item is not confirmed by a header of its name, whose fields may seem to reach over
    // the next one.
    Trust trustIn(const ZipItem& item, const std::vector<ZipItem>& places) const {
        if (places.empty()) return Trust::OtherName;
        const auto header = localHeaderAt(*source_, places.front().headerOffset);
        const bool isSame =
            header ? header->item.name == item.name : places.front().otherName.empty();
        if (!isSame) return Trust::OtherName;
        const bool isConfirmed = item.size != 0 && header && endOfSame(*source_, *header, item);
        return isConfirmed ? Trust::Confirmed : Trust::SameName;
    }

    // Of two items with one name in the directory, the headers tell which is which.
    static void preferLocalNames(std::vector<ZipItem>& places) {
        for (ZipItem& placed : places) {
            if (!placed.otherName.empty()) std::swap(placed.name, placed.otherName);
        }
    }

    void reportMissingRecords() {
        ZipItem nameless;
        nameless.name = "the start of the directory";
        failures_.add(nameless, source_->size, lostBy(Loss::DirectoryStart));
    }

    // Takes an item of a whole directory from one of its places. The directory says that what
    // follows the item is at `next`. An item that is not there may still be found by its header, so
    // it is remembered.
    void takeListed(const ZipItem& item, const std::vector<ZipItem>& places, std::uint64_t next) {
        Verdict verdict = lostBy(Loss::Cut);
        for (const ZipItem& placed : places) {
            Verdict there = keepListed(placed);
            if (there.isKept()) return;
            if (&placed == &places.front()) verdict = std::move(there);
        }
        if (takeAtOtherOffset(item, places, next)) return;
        listed_.emplace(item.name, Listed{item, next});
        failures_.add(places.empty() ? item : places.front(), source_->size, std::move(verdict));
        auto header =
            places.empty() ? std::nullopt : localHeaderAt(*source_, places.front().headerOffset);
        if (header && header->item.name == item.name) {
            takeByHeader(item, places.front(), *header);
        } else {
            // Perhaps another name is right.
            listedNames_.try_emplace({Content(item), item.name.size()}, item.name);
        }
    }

    Verdict keepListed(const ZipItem& placed) {
        return isEmptied(*source_, placed) ? lostBy(Loss::TwoSizes) : kept_.keep(placed);
    }

    // Takes a listed item whose data begins elsewhere than its local header says.
    bool takeAtOtherOffset(const ZipItem& item, const std::vector<ZipItem>& places,
                           std::uint64_t next) {
        for (ZipItem placed : places) {
            const std::uint64_t moved = placed.headerOffset - item.headerOffset;
            for (const std::uint64_t offset : otherOffsetsOfData(*source_, placed, next + moved)) {
                placed.dataOffset = offset;
                if (keepListed(placed).isKept()) return true;
            }
        }
        return false;
    }

    // Takes a listed item by the numbers of its local header, which may be better than the
    // directory's. If the directory's offsets are shifted, the header may belong to an archive
    // within the file, so its numbers are not used.
    void takeByHeader(const ZipItem& item, const ZipItem& placed, LocalHeader& header) {
        if (isExact_ && takeWhole(header, source_->size).isKept()) return;
        if (isExact_ || header.agreesWith(item))
            failures_.claim(placed.headerOffset, placed.dataOffset + item.compressedSize);
    }

    // Remembers the data of the items from the start of the file on, as far as each header says
    // where the next one is.
    void followHeaders() {
        std::uint64_t at = 0;
        while (const auto header = localHeaderAt(*source_, at, Place::Expected)) {
            const auto end = header->claimedEnd();
            if (!end) return;
            inItems_.add(header->item.dataOffset, *end);
            at = *end + descriptorSize(*source_, *end, header->item);
        }
    }

    void searchRecords() {
        SignatureSearch search(*source_, central::kSignature);
        std::uint64_t from = 0, end = 0;  // of the record in front
        while (const auto at = search.next(from, source_->size)) {
            if (*at > end) lastRecords_ = *at;
            const bool isClaimed = *at < end;  // because the lengths of that record are damaged
            const std::uint64_t size = takeRecord(*at);
            const bool isWasted = size == 0 || isClaimed;
            if (isWasted && !budget_.spend(std::max(size, SearchBudget::kAttempt))) return;
            from = *at + sizeof central::kSignature;
            end = std::max(from, *at + size);
        }
    }

    // Takes the item of the directory record at `at`, or remembers the record until the local
    // headers are searched. Returns the record's size; 0 if there is no directory record.
    std::uint64_t takeRecord(std::uint64_t at) {
        const std::uint64_t size = centralRecordSize(*source_, at);
        if (size == 0) return 0;
        const auto record = source_->at(at, size);
        try {
            const std::string text(asText(Bytes(record)));
            ZipItem item = readDirectory(text, 1, *source_->file).front();
            item.directoryRecord = {};
            if (!isName(item.name)) return 0;  // zeros from the length of the name on
            // Records of a copy of the archive in front may point into that.
            if (within_.endAround(at) || within_.endAround(item.headerOffset)) {
                failures_.add(item, at, lostBy(Loss::Within));
                return size;
            }
            const std::uint64_t headerOffset = item.headerOffset;
            if (headerOffset < source_->size) addLocal(*source_, item);
            const auto header = localHeaderAt(*source_, headerOffset);
            if (header && endOfSame(*source_, *header, item)) {
                takeConfirmed(item);
            } else {
                see(item, false);
                records_.emplace(headerOffset, Record{std::move(item), at});
            }
            return size;
        } catch (const Exception&) {
            budget_.spend(size);
            return 0;
        }
    }

    // Takes an item whose directory record and local header agree.
    void takeConfirmed(const ZipItem& item) {
        see(item, true);
        Verdict verdict = kept_.keep(item);
        if (verdict.isKept()) return;
        failures_.add(item, item.headerOffset, std::move(verdict));
        failures_.claim(item.dataOffset, item.dataOffset + item.compressedSize);
    }

    // Takes the items of directory records that point to a damaged local header. Empty content
    // would be whole wherever a record points to, so there must be a header.
    void takeWithoutHeaders() {
        for (auto& [offset, record] : records_) {
            if (localHeaderAt(*source_, offset)) continue;
            Verdict verdict = offset >= source_->size ? lostBy(Loss::Cut)
                              : record.item.size == 0 ? lostBy(Loss::Header)
                                                      : kept_.keep(record.item);
            if (verdict.isKept()) {
                see(kept_.items().back(), true);
            } else {
                failures_.add(record.item, record.at, std::move(verdict));
            }
        }
    }

    // Searches the bytes between the items that were taken so far for local headers, and those of
    // lost items too if a whole directory says what to look for.
    void searchHeaders() {
        Ranges closed = isWhole_ ? Ranges() : failures_.claimed();
        for (const auto& [start, end] : kept_.bytes().all())
            closed.add(start, end);
        std::vector<std::pair<std::uint64_t, std::uint64_t>> gaps;
        std::uint64_t from = 0;
        for (const auto& [start, end] : closed.all()) {
            gaps.emplace_back(from, start);
            from = end;
        }
        gaps.emplace_back(from, source_->size);
        SignatureSearch search(*source_, local::kSignature);
        for (const auto& [start, end] : gaps)
            searchGap(search, start, end);
    }

    void searchGap(SignatureSearch& search, std::uint64_t from, std::uint64_t end) {
        Position position{from};
        while (position.at < end) {
            const auto next = nextHeader(search, position, end);
            if (!next) return;
            if (const auto archiveEnd = within_.endAround(next->at)) {
                position = {*archiveEnd, next->isSure};
                continue;
            }
            const std::size_t before = kept_.items().size();
            position = takeUnlisted(*next, end);
            if (kept_.items().size() == before && !budget_.spend(SearchBudget::kAttempt)) return;
        }
    }

    // The next local header. Right after an item of the file's own its signature may be damaged.
    std::optional<Position> nextHeader(SignatureSearch& search, const Position& from,
                                       std::uint64_t end) const {
        const std::uint64_t joined = from.at + descriptor::kLargest;
        const auto at = search.next(from.at, end);
        if (at && *at <= joined) return Position{*at, from.isSure};
        if (from.isSure && !isWhole_ && localHeaderAt(*source_, from.at, Place::Expected))
            return from;
        if (!at) return std::nullopt;
        return Position{*at, false};
    }

    // Takes the item of a local header. Returns where the search goes on: after the item's data,
    // which is not searched, whether it is whole or not, unless a whole directory says what to look
    // for.
    Position takeUnlisted(const Position& position, std::uint64_t limit) {
        auto header = localHeaderAt(*source_, position.at,
                                    position.isSure && !isWhole_ ? Place::Expected : Place::Any);
        if (!header) return behindNonsense(position, limit);
        if (takeByRecord(*header) || takeAsListed(*header)) return {behindTaken()};
        // An item of this name that has another one, too, is called by that.
        if (position.isSure && !isWhole_) kept_.freeName(header->item.name);
        Verdict verdict = takeWhole(*header, limit);
        const auto loss = verdict.loss;
        see(header->item, position.isSure, !header->isIncomplete());
        if (verdict.isKept()) {
            if (!position.isSure) sightings_.addUnsure(position.at);
            return {behindTaken(), position.isSure};
        }
        // What has no numbers may be a piece of the item that has its name.
        const bool isPiece = header->isIncomplete() && loss == Loss::SameName;
        if (!isPiece && !kept_.hasDataOf(header->item)) {
            ZipItem item = header->item;
            const auto record = records_.find(position.at);
            if (record != records_.end()) item.name = record->second.item.name;
            failures_.add(item, position.at, std::move(verdict));
        }
        if (isWhole_) return {header->item.dataOffset, false};
        const bool isAllItsData =
            position.isSure && header->isMeasured() && (loss == Loss::Cut || loss == Loss::Overlap);
        const Position next =
            isAllItsData ? Position{limit, false} : behindLost(*header, position, limit);
        failures_.claim(header->item.dataOffset, next.at);
        return next;
    }

    // Where the search goes on after a signature without a header. If it is that of an item of the
    // file's own and a zip file seems to follow it, all that follows may be in the item.
    Position behindNonsense(const Position& position, std::uint64_t limit) {
        const std::uint64_t behind = position.at + sizeof local::kSignature;
        if (!position.isSure || isWhole_) return {behind, false};
        std::string signature;
        append(signature, local::kSignature);
        const auto header = source_->at(behind, std::min(limit - behind, kLikelyHeader));
        const bool mayContainAll = asText(header).find(signature) != std::string_view::npos;
        ZipItem item;
        item.name = nameInHeader(*source_, position.at);
        if (item.name.empty()) item.name = "item at byte " + std::to_string(position.at);
        failures_.add(item, position.at, lostBy(mayContainAll ? Loss::AllBehind : Loss::Header));
        return {mayContainAll ? limit : behind, false};
    }

    // The end of the item that was taken last, with its descriptor.
    std::uint64_t behindTaken() const {
        const ZipItem& item = kept_.items().back();
        return kept_.bytes().endAround(item.dataOffset).value_or(item.endOffset);
    }

    // Where the search goes on after an item that could not be taken. Data of unknown length that
    // begins like a zip file is skipped, up to that file's end if it is known.
    Position behindLost(const LocalHeader& header, const Position& position,
                        std::uint64_t limit) const {
        const std::uint64_t data = header.item.dataOffset;
        if (const auto end = header.claimedEnd()) return {std::min(*end, limit), position.isSure};
        if (const auto end = within_.endAround(data)) return {*end, position.isSure};
        if (const auto end = recordedEnd(header)) return {std::min(*end, limit), false};
        return {source_->number(data) == local::kSignature ? limit : data, false};
    }

    // Where the data ends according to directory records of this place and name, which may be those
    // of an archive within the file.
    std::optional<std::uint64_t> recordedEnd(const LocalHeader& header) const {
        std::optional<std::uint64_t> end;
        const auto [first, last] = records_.equal_range(header.item.headerOffset);
        for (auto record = first; record != last; ++record) {
            const ZipItem& item = record->second.item;
            if (!header.agreesWith(item) || item.compressedSize > source_->size) continue;
            end = std::max(end.value_or(0), header.item.dataOffset + item.compressedSize);
        }
        return end;
    }

    // Takes the item at this local header with the numbers and the name of a directory record for
    // the same offset, if they fit its content. That begins behind the header's name, so if the
    // names differ in length, the header has the right one. If they do not, it is likelier to: the
    // directory is damaged.
    bool takeByRecord(const LocalHeader& header) {
        const auto [first, last] = records_.equal_range(header.item.headerOffset);
        for (auto record = first; record != last; ++record) {
            ZipItem item = record->second.item;
            if (item.size == 0 && !saysEmpty(header, item)) continue;
            if (isName(header.item.name) && header.item.name != item.name) {
                if (item.name.size() == header.item.name.size()) item.otherName = item.name;
                item.name = header.item.name;
            }
            if (!kept_.keep(std::move(item)).isKept()) continue;
            const ZipItem& kept = kept_.items().back();
            if (kept.otherName.empty()) see(kept, true);
            return true;
        }
        return false;
    }

    // Whether the header at an item's place, too, says that the item is empty: empty content would
    // be whole anywhere.
    bool saysEmpty(const LocalHeader& header, const ZipItem& item) const {
        return header.item.name == item.name && !isEmptied(*source_, item);
    }

    // Takes the item at this local header if its content is that of an item of its name that a
    // whole directory lists, and that was not where the directory says.
    bool takeAsListed(const LocalHeader& header) {
        if (kept_.hasName(header.item.name) || budget_.isUsedUp()) return false;
        const auto [first, last] = listed_.equal_range(header.item.name);
        return std::any_of(first, last, [&](const auto& listed) {
            if (kept_.hasName(listed.first) || !budget_.spend(SearchBudget::kAttempt)) return false;
            ZipItem item = listed.second.item;
            item.headerOffset = header.item.headerOffset;
            item.dataOffset = header.item.dataOffset;
            if (item.size == 0 && !saysEmpty(header, item)) return false;
            return kept_.keep(std::move(item)).isKept();
        });
    }

    // Takes an item by the numbers of its local header, which is adjusted: numbers that the header
    // leaves to a descriptor are measured, up to `limit`. Of two different sizes of a stored item,
    // the one that fits the checksum counts.
    Verdict takeWhole(LocalHeader& header, std::uint64_t limit) {
        ZipItem& item = header.item;
        if (header.flags & flag::kAnyEncryption) return lostBy(Loss::Encrypted);
        if (findMethod(item.method) == nullptr)
            return lostBy(Loss::Method, "it " + methodFault(item.method));
        const DataEnd end = reader_.complete(header, limit);
        if (kept_.hasName(item.name)) return lostBy(Loss::SameName);
        if (end == DataEnd::Behind)
            return lostBy(limit == source_->size ? Loss::Cut : Loss::Overlap);
        if (end == DataEnd::Unknown) return lostBy(Loss::NoEnd);
        if (isWhole_ && !isListed(item)) return lostBy(Loss::NotListed);
        if (isContradicted(item)) return lostBy(Loss::Version);
        if (!isWhole_ && item.compressedSize == 0 && !isFollowedByRecord(*source_, item))
            return lostBy(Loss::Header);
        if (item.method != Method::Stored || item.size == item.compressedSize)
            return kept_.keep(item);
        for (const std::uint64_t size : {item.compressedSize, item.size}) {
            if (size == 0 && !isFollowedByRecord(*source_, item)) continue;
            ZipItem likely = item;
            likely.size = likely.compressedSize = size;
            if (kept_.keep(std::move(likely)).isKept()) return {};
        }
        return lostBy(Loss::TwoSizes);
    }

    // Whether single directory records, other than those in the data of items, say of this place and
    // name what can be said of another version of the item only.
    bool isContradicted(const ZipItem& item) const {
        const auto [first, last] = records_.equal_range(item.headerOffset);
        bool isDescribed = false, isContradicted = false;
        for (auto record = first; record != last; ++record) {
            if (record->second.item.name != item.name || inItems_.endAround(record->second.at))
                continue;
            (mayDescribe(record->second.item, item) ? isDescribed : isContradicted) = true;
        }
        return isContradicted && !isDescribed;
    }

    // Whether a whole directory lists this item: under its name with the same content; at its place
    // with numbers that may be damaged; or with the same content under another name that is as
    // long, and then the item gets both names.
    bool isListed(ZipItem& item) const {
        const auto [first, last] = listed_.equal_range(item.name);
        const bool isThere = std::any_of(first, last, [&](const auto& listed) {
            const ZipItem& there = listed.second.item;
            const bool isUnknown = there.headerOffset == kInZip64_32;  // its field is damaged
            const bool isHere = isExact_ && (isUnknown || there.headerOffset == item.headerOffset);
            const bool hasRoom = item.dataOffset + item.compressedSize <= listed.second.next;
            return Content(there) == Content(item) ||
                   (isHere && hasRoom && mayDescribe(there, item));
        });
        if (isThere || item.size == 0) return isThere;
        const auto renamed = listedNames_.find({Content(item), item.name.size()});
        if (renamed == listedNames_.end() || kept_.hasName(renamed->second)) return false;
        item.otherName = std::exchange(item.name, renamed->second);
        return true;
    }

    void see(const ZipItem& item, bool isSure, bool hasNumbers = true) {
        if (!isWhole_) sightings_.add(item, isSure, hasNumbers);
    }

    void dropUnsure(Salvaged& found) const {
        std::erase_if(found.items, [&](const ZipItem& item) {
            const auto loss = sightings_.lossOf(item);
            if (loss) found.lost.push_back({item.displayName(), textOf(*loss)});
            return loss.has_value();
        });
    }

    void dropConflicts(Salvaged& found) const {
        auto conflicts = nameConflicts(found.items, expected_);
        if (useOtherNames(found.items, conflicts))
            conflicts = nameConflicts(found.items, expected_);
        std::erase_if(found.items, [&](const ZipItem& item) {
            const auto conflict = conflicts.find(&item);
            if (conflict == conflicts.end()) return false;
            found.lost.push_back({item.displayName(), textOf(conflict->second)});
            return true;
        });
    }

    // Gives items whose name is in conflict with another one their other name, if they have one.
    // Returns whether there are any.
    static bool useOtherNames(std::vector<ZipItem>& items, const NameConflicts& conflicts) {
        bool isAny = false;
        for (ZipItem& item : items) {
            if (item.otherName.empty() || !conflicts.contains(&item)) continue;
            std::swap(item.name, item.otherName);
            isAny = true;
        }
        return isAny;
    }

    // An item of a whole directory, and where that says that the next one begins.
    struct Listed {
        ZipItem item;
        std::uint64_t next;
    };

    // A directory record and its offset.
    struct Record {
        ZipItem item;
        std::uint64_t at;
    };

    const SalvageSource* source_;
    std::span<const std::string> expected_;
    SearchBudget budget_;
    ItemReader reader_;
    KeptItems kept_;
    Failures failures_;
    Sightings sightings_;
    bool isWhole_ = false;  // the file's own directory could be read as a whole
    bool isExact_ = false;  // and its offsets are not shifted
    Ranges within_;         // archives that are not the file's own
    Ranges inItems_;        // data of items, from the start of the file up to damage
    // Items of a whole directory that could not be taken as it describes them, by name.
    std::multimap<std::string, Listed, FoldedLess> listed_;
    // The names of those that have no header of their name, by content and length of the name.
    std::map<std::pair<Content, std::size_t>, std::string> listedNames_;
    // Directory records that no local header confirms, by header offset.
    std::multimap<std::uint64_t, Record> records_;
    std::uint64_t lastRecords_ = 0;  // where the last directory records begin
};

}  // namespace

Salvaged salvageItems(const SalvageSource& source, std::span<const std::string> expected) {
    return Salvage(source, expected).run();
}

}  // namespace opc::zip
