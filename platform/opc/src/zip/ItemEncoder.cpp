#include "platform/opc/src/zip/ItemEncoder.hpp"

#include <foundation/Threads.hpp>

#include <algorithm>
#include <utility>

namespace opc::zip {

namespace {

constexpr std::size_t kSample = std::size_t{256} << 10;

// Whether the saving is worth inflating the item at every reading. Less than three per cent is not,
// and less than a kilobyte is not either: setting up the tables of a deflated stream takes longer
// than reading that much.
constexpr std::size_t kLeastSaving = 1024;

bool isWorthwhile(std::size_t size, std::size_t deflated) {
    return deflated + std::max(kLeastSaving, size / 32) <= size;
}

class MemorySink final : public ByteSink {
public:
    explicit MemorySink(std::vector<std::byte>& bytes) : bytes_(&bytes) {}
    void append(std::span<const std::byte> more) override {
        bytes_->insert(bytes_->end(), more.begin(), more.end());
    }

private:
    std::vector<std::byte>* bytes_;
};

// One more than there are threads, so that nobody waits for a slice to be read or written.
std::size_t slotsFor(unsigned threads) {
    return threads > 1 ? threads + 1 : 1;
}

}  // namespace

ItemEncoder::ItemEncoder(Packing packing, DeflaterPool& deflaters)
    : mode_(firstMode(packing)), deflaters_(&deflaters) {}

ItemEncoder::Mode ItemEncoder::firstMode(Packing packing) noexcept {
    switch (packing) {
        case Packing::Stored:
            return Mode::Storing;
        case Packing::Deflated:
            return Mode::Deflating;
        case Packing::IfItIsWorthwhile:
            return Mode::Undecided;
    }
    return Mode::Undecided;
}

ItemEncoder::~ItemEncoder() {
    release();
}

// Frees what deflating needs, but for one deflater, which the next item gets.
void ItemEncoder::release() noexcept {
    if (!slots_.empty() && slots_.front().deflater) {
        deflaters_->giveBack(std::move(slots_.front().deflater));
    }
    slots_ = std::vector<Slot>();
    pending_ = std::vector<std::byte>();
}

Method ItemEncoder::method() const noexcept {
    return mode_ == Mode::Deflating ? Method::Deflated : Method::Stored;
}

void ItemEncoder::write(std::span<const std::byte> content, ByteSink& sink) {
    if (mode_ == Mode::Storing) {
        count(content);
        return sink.append(content);
    }
    const std::size_t enough = mode_ == Mode::Undecided ? kSample : kSliceSize;
    if (pending_.size() + content.size() < enough) {
        pending_.insert(pending_.end(), content.begin(), content.end());
        return;
    }
    writeFrom(
        [&content](std::span<std::byte> buffer) {
            const auto piece = content.first(std::min(content.size(), buffer.size()));
            std::ranges::copy(piece, buffer.begin());
            content = content.subspan(piece.size());
            return piece.size();
        },
        sink);
}

void ItemEncoder::writeFrom(const OutputStream::Next& next, ByteSink& sink) {
    if (mode_ == Mode::Undecided) {
        if (!fillPending(kSample, next)) return;
        decide(false, sink);
    }
    if (mode_ == Mode::Storing) {
        store(next, sink);
    } else {
        deflateFrom(next, sink);
    }
}

void ItemEncoder::finish(ByteSink& sink) {
    if (mode_ == Mode::Undecided) return decide(true, sink);
    if (mode_ == Mode::Storing) return;
    slots_.resize(std::max<std::size_t>(slots_.size(), 1));
    Slot& slot = slots_.front();
    slot.content = std::exchange(pending_, {});
    deflate(slot, true);
    handOut(slot, sink);
    release();
}

void ItemEncoder::count(std::span<const std::byte> content) {
    size_ += content.size();
    crc32_ = zip::crc32(crc32_, content);
}

// Returns whether `size` bytes are pending now, which are all that was asked for.
bool ItemEncoder::fillPending(std::size_t size, const OutputStream::Next& next) {
    while (pending_.size() < size) {
        const std::size_t had = pending_.size();
        pending_.resize(size);
        const std::size_t got = next(std::span(pending_).subspan(had));
        pending_.resize(had + got);
        if (got == 0) return false;
    }
    return true;
}

// Deflates the sample once more as part of the first slice if there is more: that costs half a
// millisecond, and keeps the slices alike.
void ItemEncoder::decide(bool isAll, ByteSink& sink) {
    slots_.resize(1);
    Slot& slot = slots_.front();
    slot.content = std::exchange(pending_, {});
    if (!slot.content.empty()) deflate(slot, true);
    if (!isWorthwhile(slot.content.size(), slot.deflated.size())) {
        mode_ = Mode::Storing;
        count(slot.content);
        sink.append(slot.content);
        return release();
    }
    mode_ = Mode::Deflating;
    if (isAll) {
        handOut(slot, sink);
        return release();
    }
    pending_ = std::exchange(slot.content, {});
}

void ItemEncoder::store(const OutputStream::Next& next, ByteSink& sink) {
    std::vector<std::byte> buffer(kSample);
    while (const std::size_t got = next(buffer)) {
        const auto content = std::span(buffer).first(got);
        count(content);
        sink.append(content);
    }
}

// Whole slices only: the rest stays pending, since nobody knows yet whether it is the last.
void ItemEncoder::deflateFrom(const OutputStream::Next& next, ByteSink& sink) {
    foundation::threads::Pipeline pipeline;
    pipeline.slots = slotsFor(foundation::threads::limit());
    slots_.resize(std::max(slots_.size(), pipeline.slots));
    pipeline.feed = [&](std::size_t slot) {
        if (!fillPending(kSliceSize, next)) return false;
        slots_[slot].content.swap(pending_);
        pending_.clear();
        return true;
    };
    pipeline.work = [&](std::size_t slot) { deflate(slots_[slot], false); };
    pipeline.take = [&](std::size_t slot) { handOut(slots_[slot], sink); };
    pipeline.run();
}

void ItemEncoder::deflate(Slot& slot, bool isLast) {
    if (!slot.deflater) {
        slot.deflater = &slot == slots_.data() ? deflaters_->take() : std::make_unique<Deflater>();
    }
    slot.deflated.clear();
    MemorySink sink(slot.deflated);
    slot.deflater->deflate(slot.content, isLast, sink);
    slot.crc32 = zip::crc32(0, slot.content);
}

// No content is left for the last slice if the item is a multiple of it long. Then what ends the
// stream belongs to the slice before.
void ItemEncoder::handOut(const Slot& slot, ByteSink& sink) {
    sink.append(slot.deflated);
    if (slot.content.empty()) {
        slices_.back().compressedSize += slot.deflated.size();
        return;
    }
    slices_.push_back({slot.deflated.size(), slot.crc32});
    size_ += slot.content.size();
    crc32_ = joinedCrc32(crc32_, slot.crc32, slot.content.size());
}

}  // namespace opc::zip
