#include "platform/opc/src/salvage/DirectorySalvage.hpp"

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/salvage/Failures.hpp"
#include "platform/opc/src/salvage/ItemReader.hpp"
#include "platform/opc/src/salvage/KeptItems.hpp"
#include "platform/opc/src/salvage/ListedItem.hpp"
#include "platform/opc/src/salvage/Loss.hpp"
#include "platform/opc/src/salvage/SearchBudget.hpp"
#include "platform/opc/src/salvage/Sightings.hpp"
#include "platform/opc/src/zip/NameIndex.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace opc::zip {

namespace {

using namespace format;

// One run over a damaged file with a whole directory. An item is kept, from the most trustworthy
// place first, when its bytes are still free and its content is whole; every other one becomes a
// failure. In the end, failures that nothing else explains are reported as lost.
class DirectorySalvage {
public:
    DirectorySalvage(const SalvageSource& source, const WholeDirectory& directory)
        : source_(&source),
          directory_(&directory),
          isInPlace_(directory.shift == 0),
          budget_(source.size),
          reader_(source, budget_),
          kept_(source, reader_),
          failures_(source) {}

    Salvaged run() {
        takeListedItems();
        if (directory_->mayLackRecords) reportMissingRecords();
        searchHeaders();
        return {.lost = failures_.lost(kept_, Sightings(), source_->size),
                .items = kept_.takeItems()};
    }

private:
    // How far the local header bears out what the directory says of an item, in the order in which
    // such items are taken.
    enum class Trust { Confirmed, SameName, OtherName };

    // Takes the items where the directory says that they are. Those that their local headers
    // confirm come first, so that no damaged item takes their bytes, and then those whose name is
    // the same in both records, so that an item with a damaged name does not take the name of
    // another.
    void takeListedItems() {
        std::multiset<std::string_view> names;
        std::set<std::uint64_t> starts = {directory_->offset};
        for (const ZipItem& item : directory_->items) {
            names.insert(item.name);
            starts.insert(item.headerOffset);
        }
        struct PlacedItem {
            const ZipItem* item;
            std::vector<ZipItem> places;
        };
        std::map<Trust, std::vector<PlacedItem>> byTrust;
        for (const ZipItem& item : directory_->items) {
            auto places = placesOf(*source_, item, directory_->shift);
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

    // Takes an item from one of its places. The directory says that what follows it is at `next`.
    // An item that is not there may still be found by its header, so it is remembered.
    void takeListed(const ZipItem& item, const std::vector<ZipItem>& places, std::uint64_t next) {
        Verdict verdict = lostBy(Loss::Cut);
        for (const ZipItem& placed : places) {
            Verdict there = keepPlaced(placed);
            if (there.isKept()) return;
            if (&placed == &places.front()) verdict = std::move(there);
        }
        if (takeAtOtherOffset(places, next)) return;
        missing_.emplace(item.name, Missing{item, next});
        failures_.add(places.empty() ? item : places.front(), source_->size, std::move(verdict));
        auto header =
            places.empty() ? std::nullopt : localHeaderAt(*source_, places.front().headerOffset);
        if (header && header->item.name == item.name) {
            takeByHeader(item, places.front(), *header);
        } else {
            // Perhaps another name is right.
            missingNames_.try_emplace({Content(item), item.name.size()}, item.name);
        }
    }

    // Takes a listed item by the numbers of its local header, which may be better than the
    // directory's. If the directory's offsets are shifted, the header may belong to an archive
    // within the file, so its numbers are not used.
    void takeByHeader(const ZipItem& item, const ZipItem& placed, LocalHeader& header) {
        if (isInPlace_ && takeByNumbers(header, source_->size).isKept()) return;
        if (isInPlace_ || header.agreesWith(item))
            failures_.claim(placed.headerOffset, placed.dataOffset + item.compressedSize);
    }

    Verdict keepPlaced(const ZipItem& placed) {
        return isEmptied(*source_, placed) ? lostBy(Loss::TwoSizes) : kept_.keep(placed);
    }

    // Takes a listed item whose data begins elsewhere than its local header says, perhaps because
    // bytes were put into the header.
    bool takeAtOtherOffset(const std::vector<ZipItem>& places, std::uint64_t next) {
        for (const ZipItem& placed : places) {
            for (const std::int64_t moved : {std::int64_t{0}, directory_->shift}) {
                const std::uint64_t end = next + static_cast<std::uint64_t>(moved);
                for (const std::uint64_t offset : otherOffsetsOfData(*source_, placed, end)) {
                    ZipItem other = placed;
                    other.dataOffset = offset;
                    if (keepPlaced(other).isKept()) return true;
                }
            }
        }
        return false;
    }

    // Searches the bytes between the items that were taken for the local headers of missing ones.
    void searchHeaders() {
        SignatureSearch search(*source_, local::kSignature);
        for (const auto& [start, end] : kept_.bytes().gaps(source_->size))
            searchGap(search, start, end);
    }

    void searchGap(SignatureSearch& search, std::uint64_t from, std::uint64_t end) {
        while (const auto at = search.next(from, end)) {
            const auto header = localHeaderAt(*source_, *at);
            const bool isKept = header && takeMissing(*header, end);
            if (!isKept && !budget_.spend(SearchBudget::kAttempt)) return;
            from = isKept   ? kept_.endOfLast()
                   : header ? header->item.dataOffset
                            : *at + sizeof local::kSignature;
        }
    }

    // Takes the item of a local header if it is one that was not where the directory says.
    bool takeMissing(LocalHeader header, std::uint64_t limit) {
        if (takeByContent(header)) return true;
        Verdict verdict = takeByNumbers(header, limit);
        if (verdict.isKept()) return true;
        if (!kept_.explains(header, verdict) && !isPiece(header, verdict, limit))
            failures_.add(header.item, header.item.headerOffset, std::move(verdict));
        return false;
    }

    // Whether a local header that was refused is no item's, but what is left of a header into which
    // bytes were put: the directory lists all items, but none of its name, and its data is not whole.
    bool isPiece(const LocalHeader& header, const Verdict& verdict, std::uint64_t limit) {
        return verdict.loss == Loss::NotListed && !directory_->mayLackRecords &&
               !reader_.wholeItem(header, limit);
    }

    // Takes the item at this local header if its content is that of a missing item of its name.
    bool takeByContent(const LocalHeader& header) {
        if (kept_.hasName(header.item.name) || budget_.isUsedUp()) return false;
        const auto [first, last] = missing_.equal_range(header.item.name);
        return std::any_of(first, last, [&](const auto& missing) {
            if (kept_.hasName(missing.first) || !budget_.spend(SearchBudget::kAttempt))
                return false;
            ZipItem item = missing.second.item;
            item.headerOffset = header.item.headerOffset;
            item.dataOffset = header.item.dataOffset;
            if (item.size == 0 && !saysEmpty(*source_, header, item)) return false;
            return kept_.keep(std::move(item)).isKept();
        });
    }

    Verdict takeByNumbers(LocalHeader& header, std::uint64_t limit) {
        return kept_.keepByNumbers(header, limit, [this](ZipItem& item) -> std::optional<Loss> {
            if (!isMissing(item)) return Loss::NotListed;
            return std::nullopt;
        });
    }

    // Whether an item is one of those that are missing: of the same name and content; at its place,
    // with numbers that may be damaged in the directory; or with the same content under another
    // name that is as long, and then the item gets both names.
    bool isMissing(ZipItem& item) const {
        const auto [first, last] = missing_.equal_range(item.name);
        const bool isThere = std::any_of(first, last, [&](const auto& missing) {
            const ZipItem& there = missing.second.item;
            const bool isUnknown = there.headerOffset == kInZip64_32;  // its field is damaged
            const bool isHere =
                isInPlace_ && (isUnknown || there.headerOffset == item.headerOffset);
            const bool hasRoom = item.dataOffset + item.compressedSize <= missing.second.next;
            return Content(there) == Content(item) ||
                   (isHere && hasRoom && mayDescribe(there, item));
        });
        if (isThere || item.size == 0) return isThere;
        const auto renamed = missingNames_.find({Content(item), item.name.size()});
        if (renamed == missingNames_.end() || kept_.hasName(renamed->second)) return false;
        item.otherName = std::exchange(item.name, renamed->second);
        return true;
    }

    // An item that could not be taken as the directory describes it, and where the directory says
    // that the next one begins.
    struct Missing {
        ZipItem item;
        std::uint64_t next;
    };

    const SalvageSource* source_;
    const WholeDirectory* directory_;
    bool isInPlace_;  // the directory's offsets are not shifted
    SearchBudget budget_;
    ItemReader reader_;
    KeptItems kept_;
    Failures failures_;
    std::multimap<std::string, Missing, FoldedLess> missing_;  // by name
    // The names of those that have no header of their name, by content and length of the name.
    std::map<std::pair<Content, std::size_t>, std::string> missingNames_;
};

}  // namespace

Salvaged salvageByDirectory(const SalvageSource& source, const WholeDirectory& directory) {
    return DirectorySalvage(source, directory).run();
}

}  // namespace opc::zip
