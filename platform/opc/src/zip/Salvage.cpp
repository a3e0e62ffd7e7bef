#include "platform/opc/src/zip/Salvage.hpp"

#include <foundation/Shown.hpp>
#include <opc/Exception.hpp>

#include "platform/opc/src/zip/ArchivesWithin.hpp"
#include "platform/opc/src/zip/CompressionMethods.hpp"
#include "platform/opc/src/zip/Deflate.hpp"
#include "platform/opc/src/zip/Directory.hpp"
#include "platform/opc/src/zip/ItemInput.hpp"
#include "platform/opc/src/zip/NameIndex.hpp"
#include "platform/opc/src/zip/ZipError.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

namespace opc::zip {

namespace {

using namespace format;

constexpr std::size_t kPiece = std::size_t{128} << 10;
// The budget of a search, in bytes that are read again without finding an item. It is kWastePerByte
// for each byte of the file plus kWaste, and each failed attempt costs at least kAttempt. When the
// budget is used up, the search gives up, so it ends whatever the file holds.
constexpr std::uint64_t kWastePerByte = 2;
constexpr std::uint64_t kWaste = std::uint64_t{64} << 20;
constexpr std::uint64_t kAttempt = 4096;
// What a damaged header gives for a name may be much longer than any name.
constexpr std::size_t kLongestShownName = 1000;
// No local header that anybody writes is longer.
constexpr std::uint64_t kLikelyHeader = 512;

// Why something that was found is not kept.
enum class Loss {
    SameName,
    Twice,
    Unsure,
    NotListed,
    Within,
    Cut,
    Overlap,
    IsFolder,
    InItem,
    Header,
    AllBehind,
    NotTried,
    Encrypted,
    NoEnd,
    TwoSizes,
    Method,
    Content
};

// The reason that LostItem gives. Loss::Method and Loss::Content have no row, because their reason
// depends on the item.
struct LossRow {
    Loss loss;
    const char* text;
};
constexpr LossRow kLosses[] = {
    {Loss::SameName, "there is another item of this name"},
    {Loss::Twice, "there are several of this name, and no directory says which counts"},
    {Loss::Unsure,
     "it follows a damaged place and may belong to a zip file that an item contained"},
    {Loss::NotListed, "the directory does not list it"},
    {Loss::Within, "it belongs to a zip file inside this one"},
    {Loss::Cut, "the file ends before its data does"},
    {Loss::Overlap, "its bytes belong to another item"},
    {Loss::IsFolder, "another item is in a folder of its name"},
    {Loss::InItem, "it is in a folder that has the name of another item"},
    {Loss::Header, "its header is damaged"},
    {Loss::AllBehind,
     "its header is damaged, and what follows it may belong to a zip file that it contained"},
    {Loss::NotTried, "not tried, because the file holds too many damaged items"},
    {Loss::Encrypted, "it is encrypted"},
    {Loss::NoEnd, "the end of its data cannot be determined"},
    {Loss::TwoSizes, "it declares two different sizes"},
};

std::string textOf(Loss loss, const std::string& detail = "") {
    const auto* const found = std::ranges::find(kLosses, loss, &LossRow::loss);
    return found == std::end(kLosses) ? detail : found->text;
}

// The result of an attempt to take an item: it was taken unless there is a `loss`.
struct Verdict {
    std::optional<Loss> loss = std::nullopt;
    std::string detail = {};

    bool isTaken() const { return !loss; }
};
Verdict lostBy(Loss loss, std::string detail = {}) {
    return {loss, std::move(detail)};
}

// What decoding a deflate stream to its end finds out about it.
struct Measured {
    std::uint64_t compressedSize = 0, size = 0;
    std::uint32_t crc32 = 0;
};

// The bytes [from, to) that an attempt to read an item's content has taken from the file, and the
// number of bytes that they inflated to.
struct Reading {
    std::uint64_t from, to;
    std::uint64_t produced = 0;
};

// Decodes the deflate stream at `offset`. Returns nullopt if it does not end before `limit`, and
// throws std::runtime_error if there is no deflate stream. `reading` is up to date in each case.
std::optional<Measured> measureDeflated(const SalvageSource& source, std::uint64_t offset,
                                        std::uint64_t limit, Reading& reading) {
    Inflater inflater;
    std::vector<std::byte> input, output(kPiece);
    Measured measured;
    std::uint64_t fed = 0;
    while (true) {
        const bool isFed = inflater.needsInput() && offset + fed < limit;
        if (isFed) {
            input = source.at(offset + fed, std::min<std::uint64_t>(kPiece, limit - offset - fed));
            if (input.empty()) return std::nullopt;
            inflater.feed(input);
            fed += input.size();
            reading.to = offset + fed;
        }
        const std::size_t got = inflater.decode(output);
        measured.crc32 = crc32(measured.crc32, std::span(output).first(got));
        measured.size += got;
        reading.produced += got;
        if (got > 0 || (isFed && !inflater.hasEnded())) continue;
        if (!inflater.hasEnded()) return std::nullopt;
        measured.compressedSize = fed - inflater.unused();
        return measured;
    }
}

// One run over a damaged file. An item is taken, from the most trustworthy source first, when its
// bytes are still free and its content is whole; every other one becomes a failure. In the end,
// failures of items that nothing else explains are reported as lost.
class Salvage {
public:
    Salvage(const SalvageSource& source, std::span<const std::string> expected,
            std::vector<LostItem>& lost)
        : source_(&source),
          expected_(expected),
          lost_(&lost),
          patience_(kWaste + kWastePerByte * source.size),
          scans_(patience_),
          descriptors_(source, descriptor::kSignature) {}

    std::vector<ZipItem> run() {
        ArchivesWithin archives = findArchives(*source_);
        isWhole_ = archives.own.has_value();
        if (isWhole_) {
            takeDirectory(*archives.own);
        } else {
            within_ = std::move(archives.others);
            searchRecords();
            takeWithoutHeaders();
        }
        searchHeaders();
        reportFailures();
        dropUnsure();
        dropConflicts();
        std::ranges::sort(items_, {}, &ZipItem::headerOffset);
        return std::move(items_);
    }

private:
    // What tells two items of one name apart.
    struct Content {
        std::uint64_t size;
        std::uint32_t crc32;
        auto operator<=>(const Content&) const = default;
    };

    // An item that was found and could not be taken. `at` is the offset of the record that names
    // it.
    struct Failure {
        std::string name, shownName;
        Content content;
        Loss loss;
        std::string detail;
        std::uint64_t at;
    };

    // What an attempt to read depends on: offset and size of the data, size and checksum of the
    // content, and method.
    using Numbers = std::tuple<std::uint64_t, std::uint64_t, std::uint64_t, std::uint32_t, Method>;

    // Where the search for local headers is. An item there is surely the file's own if it directly
    // follows another such item, is at the front of the file, or follows an item that a directory
    // record lists.
    struct Position {
        std::uint64_t at;
        bool isSure = true;
    };

    // What the first record with a given name says of the item.
    struct Seen {
        Content content;
        bool isSure;
    };

    // Where the content of an item is, and which.
    using DataPlace = std::pair<std::uint64_t, Content>;

    static DataPlace dataPlaceOf(const ZipItem& item) { return {item.dataOffset, contentOf(item)}; }
    static Content contentOf(const ZipItem& item) { return {item.size, item.crc32}; }

    void fail(const ZipItem& item, std::uint64_t at, Verdict verdict) {
        std::string shown = item.displayName();
        if (shown.size() > kLongestShownName) shown = foundation::shown(shown);
        failures_.push_back({item.name, std::move(shown), contentOf(item), *verdict.loss,
                             std::move(verdict.detail), at});
    }

    // Remembers the bytes of an item that is lost, as far as the file has them.
    void claim(std::uint64_t from, std::uint64_t to) {
        claimed_.add(from, std::min(to, source_->size));
    }

    // Takes `wasted` off the budget, and returns whether any is left.
    bool isPatient(std::uint64_t wasted) {
        patience_ -= std::min(patience_, wasted);
        return patience_ > 0;
    }

    // Charges the budget for a reading that found no item. Bytes that are read for the first time
    // are free: all such readings together read the file once, and a large damaged item must not
    // use up the budget of those after it.
    void count(const Reading& reading) {
        const bool isAgain = tried_.overlap(reading.from, reading.to);
        if (!isAgain) tried_.add(reading.from, reading.to);
        isPatient(kAttempt + (isAgain ? reading.produced : 0));
    }

    bool hasName(const std::string& name) const { return names_.contains(name); }

    // Takes the item if its bytes are free, its name is new and its content is whole. Otherwise
    // returns why not.
    Verdict take(ZipItem item) {
        item.endOffset = item.dataOffset + item.compressedSize;
        if (item.endOffset > source_->size || item.endOffset < item.dataOffset)
            return lostBy(Loss::Cut);
        // Without a header at its place, which may be wrong, an item takes only its data, and none if it
        // is empty: two bytes of the deflated form of nothing are found in much data.
        const bool hasHeader = localHeaderAt(*source_, item.headerOffset).has_value();
        const std::uint64_t start = hasHeader        ? item.headerOffset
                                    : item.size == 0 ? item.endOffset
                                                     : item.dataOffset;
        if (start < item.endOffset && taken_.overlap(start, item.endOffset))
            return lostBy(Loss::Overlap);
        if (hasName(item.name) && !item.localName.empty()) {
            std::swap(item.name, item.localName);
        }
        if (hasName(item.name)) return lostBy(Loss::SameName);
        if (Verdict verdict = judgeContent(item); !verdict.isTaken()) return verdict;
        if (start < item.endOffset)
            taken_.add(start, item.endOffset + descriptorSize(*source_, item.endOffset, item));
        names_.emplace(item.name, contentOf(item));
        places_.insert(dataPlaceOf(item));
        item.directoryRecord = {};
        items_.push_back(std::move(item));
        return {};
    }

    // Checks whether the content agrees with the item's numbers. Numbers that have failed once are
    // not tried again: directory and local header mostly say the same.
    Verdict judgeContent(const ZipItem& item) {
        const Numbers numbers{item.dataOffset, item.compressedSize, item.size, item.crc32,
                              item.method};
        const auto known = faults_.find(numbers);
        if (known != faults_.end()) return lostBy(Loss::Content, known->second);
        if (!isPatient(0)) return lostBy(Loss::NotTried);
        const auto fault = readThrough(item);
        if (!fault) return {};
        faults_.emplace(numbers, *fault);
        return lostBy(Loss::Content, *fault);
    }

    std::optional<std::string> readThrough(const ZipItem& item) {
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
            count(reading);
            return error.fault();
        }
    }

    // Adds what the local header says to an item of the directory: where the data starts, and the
    // header's name if it is a different one of the same length, as when a bit was flipped. If the
    // header is damaged, the data starts where a header without extra fields would end.
    void addLocal(ZipItem& item) const {
        const std::size_t likely = local::kHeaderSize + item.name.size();
        item.dataOffset = item.headerOffset + likely;
        const auto header = source_->at(item.headerOffset, likely);
        if (header.size() < likely) return;
        const std::size_t size = load16(header, local::kNameLength);
        const std::string_view name = asText(Bytes(header).subspan(local::kHeaderSize));
        const bool isSame = size == name.size() && name == item.name;
        if (load32(header, 0) != local::kSignature && !isSame) return;
        item.dataOffset =
            item.headerOffset + local::kHeaderSize + size + load16(header, local::kExtraLength);
        if (size == name.size() && !isSame && isName(name)) item.localName = name;
    }

    static bool isName(std::string_view name) {
        return !name.empty() && name.find('\0') == std::string_view::npos;
    }

    // Where the data of an item may begin if its local header does not say it right, because the
    // length of the name or of the extra fields is damaged: so that they end where the next item
    // begins, at `next`, or behind a header with the directory's name.
    std::vector<std::uint64_t> otherOffsetsOfData(const ZipItem& item, std::uint64_t next) const {
        std::vector<std::uint64_t> offsets;
        for (const std::uint64_t descriptor : {0, 16, 12, 24, 20}) {
            const std::uint64_t behind = item.compressedSize + descriptor;
            if (next < item.headerOffset + local::kHeaderSize + behind) continue;
            const std::uint64_t end = next - descriptor;
            if (descriptor == 0 || descriptorSize(*source_, end, item) == descriptor)
                offsets.push_back(next - behind);
        }
        offsets.push_back(item.headerOffset + local::kHeaderSize + item.name.size());
        std::erase(offsets, item.dataOffset);
        return offsets;
    }

    // Returns `item`, of the directory, once for each place where its local header may be, the
    // likeliest first: the offset that the directory says, and the one `shift` bytes after it if
    // that is another.
    std::vector<ZipItem> placesOf(const ZipItem& item, std::int64_t shift) const {
        std::vector<std::pair<int, ZipItem>> places;
        for (const std::int64_t moved : {std::int64_t{0}, shift}) {
            ZipItem placed = item;
            placed.headerOffset += static_cast<std::uint64_t>(moved);
            if (placed.headerOffset >= source_->size || (moved == 0 && !places.empty())) continue;
            addLocal(placed);
            const auto header = localHeaderAt(*source_, placed.headerOffset);
            const bool isSame = header && header->item.name == item.name;
            const bool isIt = header && endOfSame(*source_, *header, item);
            places.emplace_back(isSame + isIt, std::move(placed));
        }
        std::ranges::stable_sort(places, std::greater(), &std::pair<int, ZipItem>::first);
        std::vector<ZipItem> sorted;
        for (auto& [likelihood, placed] : places)
            sorted.push_back(std::move(placed));
        return sorted;
    }

    // Takes the items of a whole directory. Items whose name is the same in both records come
    // first, so that an item with a damaged name does not take the name of another.
    void takeDirectory(const WholeDirectory& directory) {
        isExact_ = directory.shift == 0;
        std::set<std::uint64_t> starts = {directory.offset};
        for (const ZipItem& item : directory.items)
            starts.insert(item.headerOffset);
        for (const bool isAgreed : {true, false}) {
            for (const ZipItem& item : directory.items) {
                const auto places = placesOf(item, directory.shift);
                const bool isSame = !places.empty() && places.front().localName.empty();
                if (isSame != isAgreed) continue;
                const auto next = starts.upper_bound(item.headerOffset);
                takeListed(item, places, next == starts.end() ? source_->size : *next);
            }
        }
    }

    // Whether the directory calls an item empty and the local header says its size, as if zeros had been
    // written over the directory. Empty content would always be whole.
    bool isEmptied(const ZipItem& item) const {
        if (item.size != 0 || item.compressedSize != 0) return false;
        const auto header = localHeaderAt(*source_, item.headerOffset);
        return header && header->item.name == item.name && header->item.size != 0;
    }

    // Takes an item of a whole directory from one of its places. If that fails and the directory's
    // offsets are right, the local header's numbers may be better than the directory's. If the
    // offsets are shifted, the header may belong to an archive within the file, so its numbers are
    // not used. The directory says that what follows the item is at `next`.
    void takeListed(const ZipItem& item, const std::vector<ZipItem>& places, std::uint64_t next) {
        Verdict verdict = lostBy(Loss::Cut);
        for (const ZipItem& placed : places) {
            Verdict there = isEmptied(placed) ? lostBy(Loss::TwoSizes) : take(placed);
            if (there.isTaken()) return;
            if (&placed == &places.front()) verdict = std::move(there);
        }
        for (ZipItem placed : places) {
            const std::uint64_t moved = placed.headerOffset - item.headerOffset;
            for (const std::uint64_t offset : otherOffsetsOfData(placed, next + moved)) {
                placed.dataOffset = offset;
                if (!isEmptied(placed) && take(placed).isTaken()) return;
            }
        }
        listed_.emplace(item.name, item);
        listedNames_.try_emplace({contentOf(item), item.name.size()}, item.name);
        fail(places.empty() ? item : places.front(), source_->size, std::move(verdict));
        if (places.empty()) return;
        auto header = localHeaderAt(*source_, places.front().headerOffset);
        if (!header || header->item.name != item.name) return;
        if (isExact_ && takeWhole(*header, source_->size).isTaken()) return;
        if (isExact_ || header->agreesWith(item)) {
            claim(places.front().headerOffset, places.front().dataOffset + item.compressedSize);
        }
    }

    void searchRecords() {
        SignatureSearch search(*source_, central::kSignature);
        std::uint64_t from = 0;
        while (const auto at = search.next(from, source_->size)) {
            if (*at != from) lastRecords_ = *at;
            const std::uint64_t size = takeRecord(*at);
            if (size == 0 && !isPatient(kAttempt)) return;
            from = *at + std::max<std::uint64_t>(size, sizeof central::kSignature);
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
                fail(item, at, lostBy(Loss::Within));
                return size;
            }
            const std::uint64_t headerOffset = item.headerOffset;
            if (headerOffset < source_->size) addLocal(item);
            const auto header = localHeaderAt(*source_, headerOffset);
            if (header && endOfSame(*source_, *header, item)) {
                takeConfirmed(item);
            } else {
                see(item, false);
                records_.emplace(headerOffset, Record{std::move(item), at});
            }
            return size;
        } catch (const Exception&) {
            isPatient(size);
            return 0;
        }
    }

    // Takes an item whose directory record and local header agree.
    void takeConfirmed(const ZipItem& item) {
        see(item, true);
        Verdict verdict = take(item);
        if (verdict.isTaken()) return;
        fail(item, item.headerOffset, std::move(verdict));
        claim(item.dataOffset, item.dataOffset + item.compressedSize);
    }

    // Takes the items of directory records that point to a damaged local header.
    void takeWithoutHeaders() {
        for (auto& [offset, record] : records_) {
            if (localHeaderAt(*source_, offset)) continue;
            Verdict verdict = offset < source_->size ? take(record.item) : lostBy(Loss::Cut);
            if (verdict.isTaken()) {
                see(items_.back(), true);
            } else {
                fail(record.item, record.at, std::move(verdict));
            }
        }
    }

    // Searches the bytes between the items that were taken so far for local headers, and those of lost
    // items too if a whole directory says what to look for.
    void searchHeaders() {
        Ranges closed = isWhole_ ? Ranges() : claimed_;
        for (const auto& [start, end] : taken_.all())
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
            const std::size_t before = items_.size();
            position = takeUnlisted(*next, end);
            if (items_.size() == before && !isPatient(kAttempt)) return;
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

    // Takes the item of a local header. Returns where the search goes on: after the item's data, which
    // is not searched, whether it is whole or not, unless a whole directory says what to look for.
    Position takeUnlisted(const Position& position, std::uint64_t limit) {
        auto header = localHeaderAt(*source_, position.at,
                                    position.isSure && !isWhole_ ? Place::Expected : Place::Any);
        if (!header) return behindNonsense(position, limit);
        if (takeByRecord(*header)) return {behindTaken()};
        Verdict verdict = takeWhole(*header, limit);
        if (!header->isIncomplete()) see(header->item, position.isSure);
        if (verdict.isTaken()) {
            if (!position.isSure) unsure_.insert(position.at);
            return {behindTaken(), position.isSure};
        }
        const bool isTaken = places_.contains(dataPlaceOf(header->item));
        if (!isTaken) fail(header->item, position.at, std::move(verdict));
        if (isWhole_) return {header->item.dataOffset, false};
        const Position next = behindLost(*header, position, limit);
        claim(header->item.dataOffset, next.at);
        return next;
    }

    // Where the search goes on after a signature without a header. If it is that of an item of the file's
    // own and a zip file seems to follow it, all that follows may be in the item.
    Position behindNonsense(const Position& position, std::uint64_t limit) {
        const std::uint64_t behind = position.at + sizeof local::kSignature;
        if (!position.isSure || isWhole_) return {behind, false};
        std::string signature;
        append(signature, local::kSignature);
        const auto header = source_->at(behind, std::min(limit - behind, kLikelyHeader));
        const bool mayContainAll = asText(header).find(signature) != std::string_view::npos;
        ZipItem nameless;
        nameless.name = "item at byte " + std::to_string(position.at);
        fail(nameless, position.at, lostBy(mayContainAll ? Loss::AllBehind : Loss::Header));
        return {mayContainAll ? limit : behind, false};
    }

    // The end of the item that was taken last, with its descriptor.
    std::uint64_t behindTaken() const {
        const ZipItem& item = items_.back();
        return taken_.endAround(item.dataOffset).value_or(item.endOffset);
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
    // the same offset, if they fit its content. That begins behind the header's name, so if the names
    // differ in length, the header has the right one.
    bool takeByRecord(const LocalHeader& header) {
        const auto [first, last] = records_.equal_range(header.item.headerOffset);
        for (auto record = first; record != last; ++record) {
            ZipItem item = record->second.item;
            if (item.name.size() != header.item.name.size() && isName(header.item.name))
                item.name = header.item.name;
            if (isEmptied(item) || !take(std::move(item)).isTaken()) continue;
            see(items_.back(), true);
            return true;
        }
        return false;
    }

    // Takes an item by the numbers of its local header, which is adjusted: numbers that the header
    // leaves to a descriptor are measured, up to `limit`. Of two different sizes of a stored item,
    // the one that fits the checksum counts.
    Verdict takeWhole(LocalHeader& header, std::uint64_t limit) {
        ZipItem& item = header.item;
        if (header.flags & flag::kAnyEncryption) return lostBy(Loss::Encrypted);
        if (findMethod(item.method) == nullptr)
            return lostBy(Loss::Method, "it " + methodFault(item.method));
        if (hasName(item.name)) return lostBy(Loss::SameName);
        const bool isMeasured = header.isMeasured();
        if (isMeasured && !measure(item, limit)) return lostBy(Loss::NoEnd);
        if (isWhole_ && !isListed(item, isMeasured)) return lostBy(Loss::NotListed);
        if (item.method != Method::Stored || item.size == item.compressedSize) return take(item);
        for (const std::uint64_t size : {item.compressedSize, item.size}) {
            ZipItem likely = item;
            likely.size = likely.compressedSize = size;
            if (take(std::move(likely)).isTaken()) return {};
        }
        return lostBy(Loss::TwoSizes);
    }

    // Whether a whole directory lists an item of this name with the same content or the same place,
    // or one with the same content and another name that is as long; the item then gets both names.
    // Content that was measured may be another item's that was written over this one's. At the same place,
    // it counts only if it has one of the numbers that the directory says, which may be damaged.
    bool isListed(ZipItem& item, bool isMeasured) const {
        const auto [first, last] = listed_.equal_range(item.name);
        const bool isThere = std::any_of(first, last, [&](const auto& listed) {
            const ZipItem& there = listed.second;
            const bool isHere = isExact_ && there.headerOffset == item.headerOffset;
            const bool isLike = there.crc32 == item.crc32 || there.size == item.size ||
                                there.compressedSize == item.compressedSize ||
                                there.compressedSize == 0;
            return (isHere && (isLike || !isMeasured)) || contentOf(there) == contentOf(item);
        });
        if (isThere || item.size == 0) return isThere;
        const auto renamed = listedNames_.find({contentOf(item), item.name.size()});
        if (renamed == listedNames_.end() || hasName(renamed->second)) return false;
        item.localName = std::exchange(item.name, renamed->second);
        return true;
    }

    // Sets the numbers of an item whose local header leaves them to a descriptor. Returns false if its
    // data has no end or none with a descriptor that fits.
    bool measure(ZipItem& item, std::uint64_t limit) {
        if (!isPatient(0)) return false;
        if (item.method == Method::Stored) return measureStored(item, limit);
        return rowOf(item.method).endsItself && measureDecoded(item, limit);
    }

    // Stored data ends at a descriptor that says so. Such searches have a budget of their own, so that vain
    // ones cost no other item its chance.
    bool measureStored(ZipItem& item, std::uint64_t limit) {
        if (scans_ == 0 || item.dataOffset >= limit) return false;
        std::uint64_t from = item.dataOffset;
        while (const auto at = descriptors_.next(from, limit)) {
            from = *at + sizeof descriptor::kSignature;
            const auto checksum = source_->number(from);
            if (!checksum) break;
            ZipItem likely = item;
            likely.crc32 = *checksum;
            likely.size = likely.compressedSize = *at - item.dataOffset;
            if (descriptorSize(*source_, *at, likely) == 0) continue;
            scans_ -= std::min(scans_, likely.size);
            item = std::move(likely);
            return true;
        }
        scans_ -= std::min(scans_, limit - item.dataOffset);
        return false;
    }

    bool measureDecoded(ZipItem& item, std::uint64_t limit) {
        Reading reading{item.dataOffset, item.dataOffset};
        try {
            const auto found = measureDeflated(*source_, item.dataOffset, limit, reading);
            count(reading);
            if (!found || !describes(item.dataOffset + found->compressedSize, found->crc32)) {
                return false;
            }
            item.crc32 = found->crc32;
            item.size = found->size;
            item.compressedSize = found->compressedSize;
            return true;
        } catch (const std::runtime_error&) {
            count(reading);  // no deflate stream
            return false;
        }
    }

    // Whether there is a descriptor with this checksum.
    bool describes(std::uint64_t descriptorAt, std::uint32_t checksum) const {
        const auto found = source_->at(descriptorAt, 2 * sizeof checksum);
        if (found.size() < 2 * sizeof checksum) return false;
        const bool isSigned = load32(found, 0) == descriptor::kSignature;
        return load32(found, isSigned ? sizeof checksum : 0) == checksum;
    }

    // Records what was found under a name. If two items of one name differ and one of them is not
    // surely the file's own, items of an archive within the file are among those that were found.
    void see(const ZipItem& item, bool isSure) {
        if (isWhole_) return;
        const auto [found, isNew] = seen_.try_emplace(item.name, Seen{contentOf(item), isSure});
        const Seen& other = found->second;
        if (isNew || other.content == contentOf(item)) return;
        if (isSure && other.isSure) {
            twice_.insert(item.name);
        } else {
            isMixed_ = true;
        }
    }

    // Drops items that may belong to an archive within the file, and all items of an ambiguous
    // name: a repaired copy must not be a mixture of two packages.
    void dropUnsure() {
        std::erase_if(items_, [this](const ZipItem& item) {
            const bool isTwice = twice_.contains(item.name);
            const bool isUnsure = isMixed_ && unsure_.contains(item.headerOffset);
            if (isTwice || isUnsure) {
                lost_->push_back(
                    {item.displayName(), textOf(isTwice ? Loss::Twice : Loss::Unsure)});
            }
            return isTwice || isUnsure;
        });
    }

    using Names = std::set<std::string, FoldedLess>;
    enum class Rank { Expected, Plain, Odd };

    Rank rankOf(const std::string& name) const {
        if (std::ranges::find(expected_, name) != expected_.end()) return Rank::Expected;
        const bool isOdd = mayResolve(name) || name.find('\\') != std::string::npos;
        return isOdd ? Rank::Odd : Rank::Plain;
    }

    // Drops items that some reader takes for another, or for the folder of another: the copy that is made
    // of the items must not mean two things. Of two, the one with the likelier name stays. Two plain names
    // that conflict as folder and item are left to the rules of packages.
    void dropConflicts() {
        std::vector<std::pair<Rank, const ZipItem*>> order;
        for (const ZipItem& item : items_)
            order.emplace_back(rankOf(item.name), &item);
        std::ranges::stable_sort(order, {}, &std::pair<Rank, const ZipItem*>::first);
        Names known, expected, folders;
        std::set<const ZipItem*> dropped;
        for (const auto& [rank, item] : order) {
            const bool isNew = !known.contains(item->name) && !folders.contains(item->name);
            if (isNew && item->isDirectory()) {
                folders.insert(item->name);
                continue;
            }
            Names names = {item->name};
            if (mayResolve(item->name)) {
                names.insert(resolvedName(item->name));
                names.insert(resolvedName(item->displayName()));
            }
            const auto loss = isNew ? conflictOf(names, known, rank == Rank::Odd ? known : expected)
                                    : std::optional(Loss::SameName);
            if (loss) {
                dropped.insert(item);
                lost_->push_back({item->displayName(), textOf(*loss)});
                continue;
            }
            if (rank == Rank::Expected) expected.insert(names.begin(), names.end());
            known.merge(names);
        }
        std::erase_if(items_, [&](const ZipItem& item) { return dropped.contains(&item); });
    }

    static std::optional<Loss> conflictOf(const Names& names, const Names& known,
                                          const Names& asFolders) {
        for (const std::string& name : names) {
            if (known.contains(name)) return Loss::SameName;
            // In FoldedLess order, what is in a folder directly follows the folder's name.
            const auto next = asFolders.lower_bound(name);
            if (next != asFolders.end() && isInFolder(*next, name)) return Loss::IsFolder;
            if (next != asFolders.begin() && isInFolder(name, *std::prev(next)))
                return Loss::InItem;
        }
        return std::nullopt;
    }

    // Reports failures as lost, each name once. A failure does not count if an item of its name was
    // taken after all, unless that has other content, or if its record is in the content of an item,
    // such as a zip file within. The last records of the file are not: a cut item may seem to hold them.
    void reportFailures() {
        std::set<std::pair<std::string, bool>> told;  // the name, and whether another item has it
        for (Failure& failure : failures_) {
            const bool isOther = failure.loss == Loss::SameName;
            const auto kept = names_.find(failure.name);
            const bool isKept = kept != names_.end();
            if (isKept && (!isOther || kept->second == failure.content)) continue;
            if (isOther && twice_.contains(failure.name)) continue;
            if (taken_.overlap(failure.at, failure.at + 1)) continue;
            const bool isOfDirectory = !isWhole_ && failure.at >= lastRecords_;
            if (!isOfDirectory && claimed_.overlap(failure.at, failure.at + 1)) continue;
            if (!told.emplace(failure.name, isOther).second) continue;
            lost_->push_back({std::move(failure.shownName), textOf(failure.loss, failure.detail)});
        }
    }

    // A directory record and its offset.
    struct Record {
        ZipItem item;
        std::uint64_t at;
    };

    const SalvageSource* source_;
    std::span<const std::string> expected_;
    std::vector<LostItem>* lost_;
    std::uint64_t patience_;  // what is left of the budget
    std::uint64_t scans_;     // the same for searches of descriptors
    SignatureSearch descriptors_;
    bool isWhole_ = false;                     // the file's own directory could be read as a whole
    bool isExact_ = false;                     // and its offsets are not shifted
    bool isMixed_ = false;                     // items of an archive within the file were found
    std::vector<ZipItem> items_;               // taken so far
    Ranges taken_;                             // the bytes of items_, with descriptors
    std::set<DataPlace> places_;               // of items_
    Ranges tried_;                             // bytes that were read without finding an item
    Ranges claimed_;                           // the bytes of items that are lost
    Ranges within_;                            // archives that are not the file's own
    std::map<std::string, Content> names_;     // of items_
    std::set<std::string, FoldedLess> twice_;  // of several items that are the file's own
    std::map<std::string, Seen, FoldedLess> seen_;  // what see() records
    std::set<std::uint64_t> unsure_;  // header offsets of items that may not be the file's own
    // Items of a whole directory that could not be taken as it describes them, by name.
    std::multimap<std::string, ZipItem, FoldedLess> listed_;
    // Their names by content and length of the name.
    std::map<std::pair<Content, std::size_t>, std::string> listedNames_;
    // Directory records that no local header confirms, by header offset.
    std::multimap<std::uint64_t, Record> records_;
    std::uint64_t lastRecords_ = 0;          // where the last directory records begin
    std::map<Numbers, std::string> faults_;  // why reading failed
    std::vector<Failure> failures_;
    std::vector<std::byte> piece_;
};

}  // namespace

std::vector<ZipItem> salvageItems(const SalvageSource& source,
                                  std::span<const std::string> expected,
                                  std::vector<LostItem>& lost) {
    return Salvage(source, expected, lost).run();
}

}  // namespace opc::zip
