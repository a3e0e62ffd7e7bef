#include "platform/opc/src/zip/InflatedSlices.hpp"

#include <foundation/Threads.hpp>
#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/Deflate.hpp"
#include "platform/opc/src/zip/SliceTable.hpp"
#include "platform/opc/src/zip/ZipError.hpp"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace opc::zip {

namespace {

// Why the result is that of inflating the data from front to back, whatever the table says:
//
// What an inflater does next depends on its place in the data (to the bit), on whether a block
// starts there, and on the 32 KiB of content before it, to which copies may refer. Let each slice
// but the last, inflated alone, have no copy from before its start, use up all bits, and end
// between two blocks, none of which is the last of the stream. An inflater that works from front to
// back starts the first slice as we do. If it starts a slice with a block at its first bit, it
// decodes the same blocks to the same content, since no copy reaches content before the slice; it
// ends at the slice's last bit, between two blocks, and so starts the next slice with a block at
// its first bit. The last slice ends with the last block of the stream and leaves nothing over,
// which is what a reader demands of the whole data. So the content is the same, and its size and
// its checksum are compared as every reader compares them. A table can only be refused: whoever can
// choose sizes and checksums in it gains nothing by that.
//
// A slice that fails any of this is not handed out, nor is any slice after it. All this is true of
// data that does not change. If the rest has to be read from front to back, what was handed out is
// therefore compared with that reading (ItemInput).

// What the slices on their way take together; see also the number of threads.
constexpr std::uint64_t kMostMemory = std::uint64_t{32} << 20;
constexpr std::size_t kFewestSlots = 2, kMostSlots = 16;

// A slice on its way through the threads.
struct Slot {
    std::size_t index = 0;
    std::vector<std::byte> data, content;
    bool fits = false;
};

class SliceReader {
public:
    SliceReader(const ItemContent& item, const InputStream::Take& take)
        : item_(&item), table_(&*item.slices), take_(&take) {
        offsets_.reserve(table_->slices.size());
        std::uint64_t offset = 0;
        for (const SliceTable::Slice& slice : table_->slices) {
            offsets_.push_back(offset);
            offset += slice.compressedSize;
        }
    }

    SlicesTaken run() {
        // With two in memory a slice may take half; data takes hardly more room than content.
        if (table_->sliceSize > kMostMemory / kFewestSlots / 2) return {};
        foundation::threads::Pipeline pipeline;
        pipeline.slots = slotCount();
        slots_.resize(pipeline.slots);
        pipeline.feed = [this](std::size_t slot) { return feed(slots_[slot]); };
        pipeline.work = [this](std::size_t slot) { inflate(slots_[slot]); };
        pipeline.take = [this](std::size_t slot) { handOut(slots_[slot]); };
        pipeline.run();
        return taken_;
    }

private:
    std::size_t slotCount() const {
        const std::size_t byMemory = kMostMemory / (2 * table_->sliceSize);
        const std::size_t wanted =
            std::min<std::size_t>(foundation::threads::limit() + 1, kMostSlots);
        return std::clamp(byMemory, kFewestSlots, std::max(wanted, kFewestSlots));
    }

    bool isLast(std::size_t index) const { return index + 1 == table_->slices.size(); }

    std::uint64_t sizeOf(std::size_t index) const {
        return isLast(index) ? item_->size - index * table_->sliceSize : table_->sliceSize;
    }

    bool feed(Slot& slot) {
        if (taken_.hasMisfit || next_ == table_->slices.size()) return false;
        slot.index = next_++;
        return true;
    }

    void inflate(Slot& slot) const {
        const SliceTable::Slice& slice = table_->slices[slot.index];
        const std::uint64_t mostData = table_->sliceSize + table_->sliceSize / 16;
        slot.fits = slice.compressedSize <= mostData && read(slot) && decode(slot) &&
                    crc32(0, slot.content) == slice.crc32;
    }

    bool read(Slot& slot) const {
        slot.data.resize(table_->slices[slot.index].compressedSize);
        try {
            return item_->source->readAt(slot.data, item_->offset + offsets_[slot.index]) ==
                   slot.data.size();
        } catch (const std::system_error& error) {
            throwItemFailure(item_->file, item_->name, error);
        }
    }

    bool decode(Slot& slot) const {
        const std::uint64_t size = sizeOf(slot.index);
        slot.content.resize(size + 1);  // to see when there is more than that
        Inflater inflater;
        inflater.feed(slot.data);
        try {
            if (inflater.decode(slot.content) != size) return false;
        } catch (const std::runtime_error&) {
            return false;
        }
        slot.content.resize(size);
        return isLast(slot.index) ? inflater.hasEnded() && inflater.unused() == 0
                                  : inflater.isBetweenBlocks();
    }

    // The last slice waits for the verdict on all.
    void handOut(const Slot& slot) {
        if (taken_.hasMisfit) return;
        const std::uint32_t crc =
            joinedCrc32(taken_.crc32, table_->slices[slot.index].crc32, slot.content.size());
        if (!slot.fits || (isLast(slot.index) && crc != item_->crc32)) {
            taken_.hasMisfit = true;
            return;
        }
        (*take_)(slot.content);
        taken_.crc32 = crc;
        taken_.size += slot.content.size();
    }

    const ItemContent* item_;
    const SliceTable* table_;
    const InputStream::Take* take_;
    std::vector<std::uint64_t> offsets_;  // of the slices in the item's data
    std::vector<Slot> slots_;
    std::size_t next_ = 0;
    SlicesTaken taken_;
};

}  // namespace

SlicesTaken inflateSlices(const ItemContent& content, const InputStream::Take& take) {
    return SliceReader(content, take).run();
}

}  // namespace opc::zip
