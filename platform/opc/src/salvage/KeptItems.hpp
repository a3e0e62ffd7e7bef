#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/salvage/DamagedFile.hpp"
#include "platform/opc/src/salvage/ItemReader.hpp"
#include "platform/opc/src/salvage/Loss.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace opc::zip {

// The items of a damaged file that are kept. No two share bytes or a name, and the content of each
// was read to its end and is whole. `source` and `reader` must outlive it.
class KeptItems {
public:
    KeptItems(const SalvageSource& source, ItemReader& reader)
        : source_(&source), reader_(&reader) {}

    // Keeps the item if it can join the others; if not, says why. Its `endOffset` is set from the
    // place and the size of its data. If its name is taken, its `otherName` becomes its name.
    Verdict keep(ZipItem item);

    // Keeps an item by the numbers of its local header, which is adjusted: numbers that the header
    // leaves to a descriptor are measured, up to `limit`. `objection` is asked about the item then.
    // Of two different sizes of a stored item, the one that fits the checksum counts.
    Verdict keepByNumbers(LocalHeader& header, std::uint64_t limit,
                          const std::function<std::optional<Loss>(ZipItem&)>& objection);

    // In the order in which they were kept.
    const std::vector<ZipItem>& items() const { return items_; }
    std::vector<ZipItem> takeItems() { return std::move(items_); }
    // The bytes of the items, with headers and descriptors.
    const Ranges& bytes() const { return bytes_; }
    bool hasName(const std::string& name) const { return names_.contains(name); }
    // The content of the item of this name; nullopt if there is none.
    std::optional<Content> contentOf(const std::string& name) const;
    // Whether an item was kept whose data is at the same place and has the same content.
    bool hasDataOf(const ZipItem& item) const { return data_.contains(dataOf(item)); }
    // Whether a local header that was refused is one more of an item that was kept, or may be a
    // piece of one: what has no numbers may be of the item that has its name.
    bool explains(const LocalHeader& header, const Verdict& verdict) const {
        return hasDataOf(header.item) || (header.isIncomplete() && verdict.loss == Loss::SameName);
    }
    // The end of the item that was kept last, with its descriptor.
    std::uint64_t endOfLast() const {
        const ZipItem& item = items_.back();
        return bytes_.endAround(item.dataOffset).value_or(item.endOffset);
    }

private:
    // Where the data of an item is, and the content.
    using Data = std::pair<std::uint64_t, Content>;

    static Data dataOf(const ZipItem& item) { return {item.dataOffset, Content(item)}; }
    bool hasLikelyFields(const ZipItem& item) const;

    const SalvageSource* source_;
    ItemReader* reader_;
    std::vector<ZipItem> items_;
    Ranges bytes_;
    std::set<Data> data_;
    std::map<std::string, Content> names_;
};

}  // namespace opc::zip
