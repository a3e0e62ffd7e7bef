#include "platform/opc/src/zip/ItemEncoder.hpp"

#include <opc/ZipArchive.hpp>

#include <algorithm>
#include <utility>

namespace opc::zip {

namespace {

constexpr std::size_t kSample = std::size_t{256} << 10;

// Less than three per cent is not worth inflating at every reading, nor is less than a kilobyte: the
// tables of a deflated stream take longer to set up than the bytes to read.
constexpr std::size_t kLeastSaving = 1024;

bool isWorthwhile(std::size_t size, std::size_t deflated) {
    return deflated + std::max(kLeastSaving, size / 32) <= size;
}

class MemorySink final : public ByteSink {
public:
    void append(std::span<const std::byte> more) override {
        bytes.insert(bytes.end(), more.begin(), more.end());
    }
    std::vector<std::byte> bytes;
};

}  // namespace

ItemEncoder::ItemEncoder(bool deflate, std::shared_ptr<DeflaterPool> deflaters)
    : mode_(deflate ? Mode::Sampling : Mode::Storing), deflaters_(std::move(deflaters)) {}

ItemEncoder::~ItemEncoder() {
    if (deflater_) deflaters_->giveBack(std::move(deflater_));
}

Method ItemEncoder::method() const noexcept {
    return mode_ == Mode::Deflating ? Method::Deflated : Method::Stored;
}

void ItemEncoder::write(std::span<const std::byte> bytes, ByteSink& sink) {
    size_ += bytes.size();
    crc32_ = zip::crc32(crc32_, bytes);
    if (mode_ == Mode::Sampling) {
        const auto taken = bytes.first(std::min(bytes.size(), kSample - sample_.size()));
        sample_.insert(sample_.end(), taken.begin(), taken.end());
        bytes = bytes.subspan(taken.size());
        if (sample_.size() == kSample) decide(false, sink);
    }
    encode(bytes, sink);
}

void ItemEncoder::finish(ByteSink& sink) {
    if (mode_ == Mode::Sampling) {
        decide(true, sink);
    } else if (mode_ == Mode::Deflating) {
        deflater_->finish(sink);
    }
}

void ItemEncoder::encode(std::span<const std::byte> bytes, ByteSink& sink) {
    if (bytes.empty()) return;
    if (mode_ == Mode::Deflating) deflater_->write(bytes, sink);
    if (mode_ == Mode::Storing) sink.append(bytes);
}

// The deflated sample is not thrown away: the stream goes on from it.
void ItemEncoder::decide(bool isAll, ByteSink& sink) {
    if (sample_.empty()) {
        mode_ = Mode::Storing;
        return;
    }
    MemorySink deflated;
    deflater_ = deflaters_->take();
    deflater_->write(sample_, deflated);
    if (isAll) {
        deflater_->finish(deflated);
    } else {
        deflater_->sync(deflated);
    }
    if (isWorthwhile(sample_.size(), deflated.bytes.size())) {
        mode_ = Mode::Deflating;
        sink.append(deflated.bytes);
    } else {
        mode_ = Mode::Storing;
        sink.append(sample_);
    }
    std::vector<std::byte>().swap(sample_);
}

}  // namespace opc::zip
