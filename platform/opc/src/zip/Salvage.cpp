#include "platform/opc/src/zip/Salvage.hpp"

#include <foundation/Shown.hpp>
#include <opc/Exception.hpp>

#include "platform/opc/src/zip/Deflate.hpp"
#include "platform/opc/src/zip/Directory.hpp"
#include "platform/opc/src/zip/NameIndex.hpp"
#include "platform/opc/src/zip/ZipError.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

namespace opc::zip {

namespace {

using namespace format;

constexpr std::size_t kBlock = std::size_t{1} << 20;
constexpr std::size_t kPiece = std::size_t{128} << 10;
// What may be read again in vain before the search gives up, as a multiple of the file and on top of
// it, and what each attempt counts for at least. Whatever a file holds, its search ends.
constexpr std::uint64_t kWastePerByte = 2;
constexpr std::uint64_t kWaste = std::uint64_t{64} << 20;
constexpr std::uint64_t kAttempt = 4096;

constexpr const char* kSameName = "there is another item of this name";

std::vector<std::byte> bytesAt(const SalvageSource& source, std::uint64_t offset,
                               std::uint64_t size) {
    std::vector<std::byte> bytes(offset < source.size ? std::min(size, source.size - offset)
                                                      : std::uint64_t{0});
    bytes.resize(source.bytes->readAt(bytes, offset));
    return bytes;
}

// Intervals of the file, no two of which overlap.
class Ranges {
public:
    bool overlap(std::uint64_t from, std::uint64_t to) const {
        const auto next = endOf_.upper_bound(from);
        return (next != endOf_.begin() && std::prev(next)->second > from) ||
               (next != endOf_.end() && next->first < to);
    }
    void add(std::uint64_t from, std::uint64_t to) {
        if (from < to) endOf_.emplace(from, to);
    }
    // By their starts.
    const std::map<std::uint64_t, std::uint64_t>& all() const { return endOf_; }

private:
    std::map<std::uint64_t, std::uint64_t> endOf_;
};

// Finds a record's signature, moving forward through the file.
class SignatureSearch {
public:
    SignatureSearch(const SalvageSource& source, std::uint32_t signature) : source_(&source) {
        append(signature_, signature);
    }

    std::optional<std::uint64_t> next(std::uint64_t from, std::uint64_t to) {
        while (from + signature_.size() <= to) {
            load(from);
            const std::string_view held =
                asText(Bytes(block_))
                    .substr(0, std::min<std::uint64_t>(block_.size(), to - start_));
            const std::size_t at = held.find(signature_, from - start_);
            if (at != std::string_view::npos) return start_ + at;
            if (held.size() < kBlock) return std::nullopt;
            from = start_ + held.size() - signature_.size() + 1;
        }
        return std::nullopt;
    }

private:
    void load(std::uint64_t from) {
        if (from >= start_ && from + signature_.size() <= start_ + block_.size()) return;
        start_ = from;
        block_ = bytesAt(*source_, from, kBlock);
    }

    const SalvageSource* source_;
    std::string signature_;
    std::uint64_t start_ = 0;
    std::vector<std::byte> block_;
};

// A deflate stream that says itself where it ends.
struct Measured {
    std::uint64_t compressedSize = 0, size = 0;
    std::uint32_t crc32 = 0;
};

// What an attempt at an item's content has taken from the file, and what it came to.
struct Reading {
    std::uint64_t from, to;
    std::uint64_t produced = 0;
};

// Nothing when the stream has no end before `limit`.
std::optional<Measured> measureDeflated(const SalvageSource& source, std::uint64_t offset,
                                        std::uint64_t limit, Reading& reading) {
    Inflater inflater;
    std::vector<std::byte> input, output(kPiece);
    Measured measured;
    std::uint64_t fed = 0;
    while (true) {
        const bool isFed = inflater.needsInput() && offset + fed < limit;
        if (isFed) {
            input = bytesAt(source, offset + fed,
                            std::min<std::uint64_t>(kPiece, limit - offset - fed));
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

class Salvage {
public:
    Salvage(const SalvageSource& source, std::vector<LostItem>& lost)
        : source_(&source), lost_(&lost), patience_(kWaste + kWastePerByte * source.size) {}

    std::vector<ZipItem> run(std::optional<std::vector<ZipItem>> directory) {
        isWhole_ = directory.has_value();
        if (directory) {
            takeDirectory(std::move(*directory));
        } else {
            searchRecords();
        }
        searchHeaders();
        takeDoubtful();
        reportFailures();
        std::ranges::sort(items_, {}, &ZipItem::headerOffset);
        return std::move(items_);
    }

private:
    // Something of this name was found, and could not be taken. `at` is where the file says so.
    struct Failure {
        std::string name, shownName, reason;
        std::uint64_t at;
    };

    // Offset and size of the data, size and checksum of the content, method.
    using Numbers = std::tuple<std::uint64_t, std::uint64_t, std::uint64_t, std::uint32_t, Method>;

    void fail(const ZipItem& item, std::uint64_t at, std::string reason) {
        failedNames_.insert(item.name);
        if (!item.localName.empty()) failedNames_.insert(item.localName);
        failures_.push_back({item.name, item.displayName(), std::move(reason), at});
    }

    bool isPatient(std::uint64_t wasted) {
        patience_ -= std::min(patience_, wasted);
        return patience_ > 0;
    }

    // Bytes that are read for the first time cost no patience: a large damaged item must not take
    // it from those behind it, and all such readings together are one of the file.
    void count(const Reading& reading) {
        const bool isAgain = tried_.overlap(reading.from, reading.to);
        if (!isAgain) tried_.add(reading.from, reading.to);
        isPatient(kAttempt + (isAgain ? reading.produced : 0));
    }

    // Takes the item when its bytes are free and its content is whole; otherwise says why not.
    std::string take(ZipItem item) {
        item.endOffset = item.dataOffset + item.compressedSize;
        if (item.endOffset > source_->size || item.endOffset < item.dataOffset) {
            return "the file ends before its data does";
        }
        if (taken_.overlap(item.headerOffset, item.endOffset)) {
            return "its bytes belong to another item";
        }
        if (names_.contains(item.name) && !item.localName.empty()) {
            std::swap(item.name, item.localName);
        }
        if (names_.contains(item.name)) return kSameName;
        if (std::string reason = faultOf(item); !reason.empty()) return reason;
        taken_.add(item.headerOffset, item.endOffset);
        names_.insert(item.name);
        item.directoryRecord = {};
        items_.push_back(std::move(item));
        return {};
    }

    // Why the content is not what the item's numbers say; empty when it is. What has failed once is
    // not read again: the directory and the local header mostly say the same.
    std::string faultOf(const ZipItem& item) {
        const Numbers numbers{item.dataOffset, item.compressedSize, item.size, item.crc32,
                              item.method};
        const auto known = faults_.find(numbers);
        if (known != faults_.end()) return known->second;
        if (!isPatient(0)) return "not tried, since the file holds too many damaged items";
        std::string fault = readThrough(item);
        if (!fault.empty()) faults_.emplace(numbers, fault);
        return fault;
    }

    std::string readThrough(const ZipItem& item) {
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
            return {};
        } catch (const Exception& fault) {
            count(reading);
            const std::string prefix = ": " + foundation::shown(item.displayName()) + ": ";
            const std::string text = fault.what();
            return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
        }
    }

    std::vector<std::byte> fixedHeaderAt(std::uint64_t offset) const {
        return bytesAt(*source_, offset, local::kHeaderSize);
    }
    static bool isHeader(Bytes header) {
        return header.size() == local::kHeaderSize && load32(header, 0) == local::kSignature;
    }

    // Adds what the local header says: where the data starts, and its name where that is another of the
    // same length, as when a bit was flipped. Without one, the data are where it would end.
    void addLocal(ZipItem& item) const {
        const std::size_t likely = local::kHeaderSize + item.name.size();
        item.dataOffset = item.headerOffset + likely;
        const auto header = bytesAt(*source_, item.headerOffset, likely);
        if (header.size() < likely || !isHeader(Bytes(header).first(local::kHeaderSize))) return;
        const std::size_t size = load16(header, local::kNameLength);
        item.dataOffset =
            item.headerOffset + local::kHeaderSize + size + load16(header, local::kExtraLength);
        const std::string_view name = asText(Bytes(header).subspan(local::kHeaderSize));
        if (size == name.size() && name != item.name && isName(name)) item.localName = name;
    }

    static bool isName(std::string_view name) {
        return !name.empty() && name.find('\0') == std::string_view::npos;
    }

    // Those whose name both records have come first, so that a damaged name takes nobody else's.
    void takeDirectory(std::vector<ZipItem> directory) {
        for (ZipItem& item : directory) {
            if (item.headerOffset < source_->size) addLocal(item);
        }
        for (const bool isAgreed : {true, false}) {
            for (ZipItem& item : directory) {
                if (item.localName.empty() == isAgreed) takeListed(std::move(item), source_->size);
            }
        }
    }

    void takeListed(ZipItem item, std::uint64_t recordAt) {
        if (item.headerOffset >= source_->size) {
            return fail(item, recordAt, "the file ends before its data does");
        }
        if (std::string reason = take(item); !reason.empty()) {
            fail(item, recordAt, std::move(reason));
        }
    }

    void searchRecords() {
        SignatureSearch search(*source_, central::kSignature);
        std::uint64_t from = 0;
        while (const auto at = search.next(from, source_->size)) {
            const std::uint64_t size = takeRecord(*at);
            if (size == 0 && !isPatient(kAttempt)) return;
            from = *at + std::max<std::uint64_t>(size, sizeof central::kSignature);
        }
    }

    // The size of the directory record that stands there; 0 when it is none.
    std::uint64_t takeRecord(std::uint64_t at) {
        const auto header = bytesAt(*source_, at, central::kHeaderSize);
        if (header.size() < central::kHeaderSize) return 0;
        const std::size_t size = central::kHeaderSize + load16(header, central::kNameLength) +
                                 load16(header, central::kExtraLength) +
                                 load16(header, central::kCommentLength);
        const auto record = bytesAt(*source_, at, size);
        if (record.size() < size) return 0;
        try {
            const std::string text(asText(Bytes(record)));
            auto items = readDirectory(text, 1, *source_->file);
            ZipItem& item = items.front();
            item.directoryRecord = {};
            if (isConfirmed(item)) {
                addLocal(item);
                takeListed(std::move(item), at);
            } else {
                doubtful_.try_emplace(item.headerOffset, std::move(item), at);
            }
            return size;
        } catch (const Exception&) {
            isPatient(size);
            return 0;
        }
    }

    // Whether a local header of this name stands where the record says. Otherwise the record may be
    // one of a zip file within this one.
    bool isConfirmed(const ZipItem& item) const {
        if (!isHeader(fixedHeaderAt(item.headerOffset))) return false;
        const auto name =
            bytesAt(*source_, item.headerOffset + local::kHeaderSize, item.name.size());
        return asText(Bytes(name)) == item.name;
    }

    // What no local header has settled: its own may be damaged.
    void takeDoubtful() {
        for (auto& [offset, record] : doubtful_) {
            auto& [item, at] = record;
            if (taken_.overlap(at, at + 1) || names_.contains(item.name)) continue;
            if (item.headerOffset < source_->size) addLocal(item);
            takeListed(std::move(item), at);
        }
    }

    void searchHeaders() {
        std::vector<std::pair<std::uint64_t, std::uint64_t>> gaps;
        std::uint64_t from = 0;
        for (const auto& [start, end] : taken_.all()) {
            gaps.emplace_back(from, start);
            from = end;
        }
        gaps.emplace_back(from, source_->size);
        SignatureSearch search(*source_, local::kSignature);
        for (const auto& [start, end] : gaps)
            searchGap(search, start, end);
    }

    void searchGap(SignatureSearch& search, std::uint64_t from, std::uint64_t end) {
        while (const auto at = search.next(from, end)) {
            const std::size_t before = items_.size();
            takeUnlisted(*at, end);
            const bool isNew = items_.size() > before;
            if (!isNew && !isPatient(kAttempt)) return;
            from = isNew ? items_.back().endOffset : *at + sizeof local::kSignature;
        }
    }

    void takeUnlisted(std::uint64_t at, std::uint64_t limit) {
        const auto fixed = fixedHeaderAt(at);
        if (!isHeader(fixed) || takeByRecord(at)) return;
        const std::size_t size = local::kHeaderSize + load16(fixed, local::kNameLength) +
                                 load16(fixed, local::kExtraLength);
        if (at + size > limit) return;
        isPatient(size);  // headers may overlap
        const auto header = bytesAt(*source_, at, size);
        if (header.size() < size) return;
        ZipItem item = itemOf(header);
        if (!isName(item.name)) return;
        item.headerOffset = at;
        item.dataOffset = at + size;
        std::string reason = takeWhole(item, load16(header, local::kFlags), limit);
        if (reason.empty() || at < failedUntil_) return;
        fail(item, at, std::move(reason));
        failedUntil_ = at + size;
    }

    // The directory's numbers and name where they fit this local header's content.
    bool takeByRecord(std::uint64_t headerOffset) {
        const auto record = doubtful_.find(headerOffset);
        if (record == doubtful_.end()) return false;
        ZipItem item = record->second.first;
        addLocal(item);
        return take(std::move(item)).empty();
    }

    static ZipItem itemOf(Bytes header) {
        const std::size_t nameSize = load16(header, local::kNameLength);
        ZipItem item;
        item.name = asText(header.subspan(local::kHeaderSize, nameSize));
        item.nameIsUtf8 = (load16(header, local::kFlags) & flag::kUtf8) != 0;
        item.method = Method{load16(header, local::kMethod)};
        item.crc32 = load32(header, local::kCrc);
        item.size = load32(header, local::kSize);
        item.compressedSize = load32(header, local::kCompressedSize);
        const auto wide = findExtra(header.subspan(local::kHeaderSize + nameSize), extra::kZip64);
        if (wide && wide->content.size() >= 2 * sizeof(std::uint64_t)) {
            if (item.size == kInZip64_32) item.size = load64(wide->content, 0);
            if (item.compressedSize == kInZip64_32) {
                item.compressedSize = load64(wide->content, sizeof(std::uint64_t));
            }
        }
        return item;
    }

    std::string takeWhole(ZipItem item, std::uint16_t flags, std::uint64_t limit) {
        if (flags & flag::kAnyEncryption) return "it is encrypted";
        if (item.method != Method::Stored && item.method != Method::Deflated) {
            return "it is compressed by method " +
                   std::to_string(static_cast<unsigned>(item.method)) +
                   "; packages allow only 0 (stored) and 8 (deflated)";
        }
        if (isWhole_ && !failedNames_.contains(item.name)) {
            return names_.contains(item.name) ? kSameName : "the directory does not list it";
        }
        if (names_.contains(item.name)) return kSameName;
        const bool isMeasured = (flags & flag::kDescriptor) != 0 && item.compressedSize == 0;
        if (isMeasured && !measure(item, limit)) return "its data has no end that can be told";
        if (item.method == Method::Stored && item.size != item.compressedSize) {
            return "it is stored, but declares two sizes";
        }
        return take(std::move(item));
    }

    // The numbers of an item whose local header leaves them to a descriptor behind its data.
    bool measure(ZipItem& item, std::uint64_t limit) {
        if (item.method != Method::Deflated || !isPatient(0)) return false;
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

    bool describes(std::uint64_t descriptorAt, std::uint32_t checksum) const {
        const auto found = bytesAt(*source_, descriptorAt, 2 * sizeof checksum);
        if (found.size() < 2 * sizeof checksum) return false;
        const bool isSigned = load32(found, 0) == descriptor::kSignature;
        return load32(found, isSigned ? sizeof checksum : 0) == checksum;
    }

    // What was taken under the same name after all is not lost, and neither is what was only seen in
    // the content of an item, such as a zip file within.
    void reportFailures() {
        std::set<std::pair<std::string, std::string>> told;
        for (Failure& failure : failures_) {
            const bool isOther = failure.reason == kSameName;
            if (names_.contains(failure.name) && !isOther) continue;
            if (taken_.overlap(failure.at, failure.at + 1)) continue;
            if (!told.emplace(failure.name, isOther ? failure.reason : "").second) continue;
            lost_->push_back({std::move(failure.shownName), std::move(failure.reason)});
        }
    }

    const SalvageSource* source_;
    std::vector<LostItem>* lost_;
    std::uint64_t patience_;
    bool isWhole_ = false;
    std::vector<ZipItem> items_;
    Ranges taken_;                             // of items_
    Ranges tried_;                             // of what was read in vain
    std::set<std::string, FoldedLess> names_;  // of items_
    std::set<std::string, FoldedLess> failedNames_;
    std::map<Numbers, std::string> faults_;
    std::vector<Failure> failures_;
    // Where the last local header that failed ends. Those that begin within it are not told as well.
    std::uint64_t failedUntil_ = 0;
    // Items of unconfirmed directory records, with the records' places, by header offset.
    std::map<std::uint64_t, std::pair<ZipItem, std::uint64_t>> doubtful_;
    std::vector<std::byte> piece_;
};

}  // namespace

std::vector<ZipItem> salvageItems(const SalvageSource& source,
                                  std::optional<std::vector<ZipItem>> directory,
                                  std::vector<LostItem>& lost) {
    return Salvage(source, lost).run(std::move(directory));
}

}  // namespace opc::zip
