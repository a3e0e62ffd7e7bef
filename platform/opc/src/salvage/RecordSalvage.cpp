#include "platform/opc/src/salvage/RecordSalvage.hpp"

#include <opc/Exception.hpp>
#include <opc/ZipArchive.hpp>

#include "platform/opc/src/salvage/Failures.hpp"
#include "platform/opc/src/salvage/ItemReader.hpp"
#include "platform/opc/src/salvage/KeptItems.hpp"
#include "platform/opc/src/salvage/ListedItem.hpp"
#include "platform/opc/src/salvage/Loss.hpp"
#include "platform/opc/src/salvage/SearchBudget.hpp"
#include "platform/opc/src/salvage/Sightings.hpp"
#include "platform/opc/src/zip/Directory.hpp"
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

// One run over a file whose directory is damaged. Items are taken in the order in which their
// records can be trusted: those of which directory record and local header agree, those whose
// header is damaged, and then those that only a local header describes. An item is kept when its
// bytes are still free and its content is whole; every other one becomes a failure. In the end,
// failures that nothing else explains are reported as lost.
class RecordSalvage {
public:
    RecordSalvage(const SalvageSource& source, Ranges within)
        : source_(&source),
          within_(std::move(within)),
          budget_(source.size),
          reader_(source, budget_),
          kept_(source, reader_),
          failures_(source) {}

    Salvaged run() {
        searchRecords();
        searchHeaders();
        takeWithoutHeaders();
        seeRecords();
        Salvaged found{.lost = failures_.lost(kept_, sightings_, lastRecords_),
                       .items = kept_.takeItems()};
        dropDoubtful(found);
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

    // A directory record and its offset.
    struct Record {
        ZipItem item;
        std::uint64_t at;
    };

    // The directory records of what is at the place of this item.
    std::span<const Record> recordsOf(const ZipItem& item) const {
        const auto found = records_.find(item.headerOffset);
        return found == records_.end() ? std::span<const Record>() : found->second;
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
                records_[headerOffset].push_back({std::move(item), at});
            }
            return size;
        } catch (const Exception&) {
            budget_.spend(size);
            return 0;
        }
    }

    // Takes an item whose directory record and local header agree.
    void takeConfirmed(const ZipItem& item) {
        sightings_.add(item, true);
        Verdict verdict = kept_.keep(item);
        if (verdict.isKept()) return;
        failures_.add(item, item.headerOffset, std::move(verdict));
        failures_.claim(item.dataOffset, item.dataOffset + item.compressedSize);
    }

    // Takes the items of directory records that point to a damaged local header. Empty content
    // would be whole wherever a record points to, so there must be a header.
    void takeWithoutHeaders() {
        for (const auto& [offset, records] : records_) {
            if (localHeaderAt(*source_, offset)) continue;
            for (const Record& record : records) {
                if (!isInItem(record.at) || record.at >= lastRecords_) takeWithoutHeader(record);
            }
        }
    }

    void takeWithoutHeader(const Record& record) {
        const ZipItem& item = record.item;
        const bool mayBeKept = item.size != 0 && !isInItem(record.at);
        Verdict verdict = item.headerOffset >= source_->size ? lostBy(Loss::Cut)
                          : mayBeKept                        ? kept_.keep(item)
                                                             : lostBy(Loss::Header);
        if (verdict.isKept()) {
            sightings_.add(kept_.items().back(), true);
        } else {
            failures_.add(item, record.at, std::move(verdict));
        }
    }

    // Searches the bytes between the items that were taken or are lost for local headers.
    void searchHeaders() {
        Ranges closed = failures_.claimed();
        for (const auto& [start, end] : kept_.bytes().all())
            closed.add(start, end);
        SignatureSearch search(*source_, local::kSignature);
        for (const auto& [start, end] : closed.gaps(source_->size))
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
            position = takeByHeader(*next, end);
            if (kept_.items().size() == before && !budget_.spend(SearchBudget::kAttempt)) return;
        }
    }

    // The next local header. Right after an item of the file's own its signature may be damaged.
    std::optional<Position> nextHeader(SignatureSearch& search, const Position& from,
                                       std::uint64_t end) const {
        const std::uint64_t joined = from.at + descriptor::kLargest;
        const auto at = search.next(from.at, end);
        if (at && *at <= joined) return Position{*at, from.isSure};
        if (from.isSure && localHeaderAt(*source_, from.at, Place::Expected)) return from;
        if (!at) return std::nullopt;
        return Position{*at, false};
    }

    // Takes the item of a local header. Returns where the search goes on: after the item's data,
    // which is not searched, whether it is whole or not.
    Position takeByHeader(const Position& position, std::uint64_t limit) {
        auto header =
            localHeaderAt(*source_, position.at, position.isSure ? Place::Expected : Place::Any);
        if (!header) return behindNonsense(position, limit);
        if (takeByRecord(*header)) return {kept_.endOfLast()};
        Verdict verdict = takeByNumbers(*header, limit);
        sightings_.add(header->item, position.isSure, !header->isIncomplete());
        if (verdict.isKept()) {
            unconfirmed_.insert(position.at);
            if (!position.isSure) sightings_.addUnsure(position.at);
            return {kept_.endOfLast(), position.isSure};
        }
        const Position next = isAllItsData(*header, verdict, position)
                                  ? Position{limit, false}
                                  : behindLost(*header, position, limit);
        failures_.claim(header->item.dataOffset, next.at);
        if (!kept_.explains(*header, verdict)) {
            ZipItem item = header->item;
            const auto records = recordsOf(item);
            if (!records.empty()) item.name = records.front().item.name;
            failures_.add(item, position.at, std::move(verdict));
        }
        return next;
    }

    // Whether the data of a lost item goes on up to where the search for its end stopped.
    static bool isAllItsData(const LocalHeader& header, const Verdict& verdict,
                             const Position& position) {
        return position.isSure && header.isMeasured() &&
               (verdict.loss == Loss::Cut || verdict.loss == Loss::Overlap ||
                verdict.loss == Loss::NoEnd);
    }

    // Where the search goes on after a signature without a header. If it is that of an item of the
    // file's own and a zip file seems to follow it, all that follows may be in the item.
    Position behindNonsense(const Position& position, std::uint64_t limit) {
        const std::uint64_t behind = position.at + sizeof local::kSignature;
        if (!position.isSure) return {behind, false};
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
        for (const auto& [item, at] : recordsOf(header.item)) {
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
        for (const Record& record : recordsOf(header.item)) {
            ZipItem item = record.item;
            if (item.size == 0 && !saysEmpty(*source_, header, item)) continue;
            if (isName(header.item.name) && header.item.name != item.name) {
                if (item.name.size() == header.item.name.size()) item.otherName = item.name;
                item.name = header.item.name;
            }
            if (!kept_.keep(std::move(item)).isKept()) continue;
            const ZipItem& kept = kept_.items().back();
            if (kept.otherName.empty()) sightings_.add(kept, true);
            return true;
        }
        return false;
    }

    Verdict takeByNumbers(LocalHeader& header, std::uint64_t limit) {
        return kept_.keepByNumbers(header, limit, [this](ZipItem& item) -> std::optional<Loss> {
            if (item.compressedSize == 0 && !isFollowedByRecord(*source_, item))
                return Loss::Header;
            return std::nullopt;
        });
    }

    // Whether the offset `at` is in the data of an item, as is known when all have been found. The
    // records of an archive there say nothing about the file's own items.
    bool isInItem(std::uint64_t at) const {
        return kept_.bytes().endAround(at) || failures_.claimed().endAround(at);
    }

    void seeRecords() {
        for (const auto& [offset, records] : records_) {
            for (const auto& [item, at] : records) {
                if (!isInItem(at)) sightings_.add(item, false);
            }
        }
    }

    // Whether single directory records say of this item's place and name what can be said of another
    // version of the item only.
    bool isContradicted(const ZipItem& item) const {
        bool isDescribed = false, isContradicted = false;
        for (const auto& [record, at] : recordsOf(item)) {
            if (record.name != item.name || isInItem(at)) continue;
            (mayDescribe(record, item) ? isDescribed : isContradicted) = true;
        }
        return isContradicted && !isDescribed;
    }

    // Why an item that was kept has to go after all, as is known in the end; nullopt if it may stay.
    std::optional<Loss> lossOf(const ZipItem& item) const {
        if (unconfirmed_.contains(item.headerOffset) && isContradicted(item)) return Loss::Version;
        return sightings_.lossOf(item);
    }

    void dropDoubtful(Salvaged& found) const {
        std::erase_if(found.items, [&](const ZipItem& item) {
            const auto loss = lossOf(item);
            if (loss) found.lost.push_back({item.displayName(), textOf(*loss)});
            return loss.has_value();
        });
    }

    const SalvageSource* source_;
    Ranges within_;  // archives that are not the file's own
    SearchBudget budget_;
    ItemReader reader_;
    KeptItems kept_;
    Failures failures_;
    Sightings sightings_;
    std::set<std::uint64_t> unconfirmed_;  // header offsets of items that only a header describes
    // Directory records that no local header confirms, by header offset.
    std::map<std::uint64_t, std::vector<Record>> records_;
    std::uint64_t lastRecords_ = 0;  // where the last directory records begin
};

}  // namespace

Salvaged salvageByRecords(const SalvageSource& source, Ranges within) {
    return RecordSalvage(source, std::move(within)).run();
}

}  // namespace opc::zip
