#include "platform/opc/src/zip/ItemOutput.hpp"

#include "platform/opc/src/Ascii.hpp"
#include "platform/opc/src/zip/ByteSource.hpp"
#include "platform/opc/src/zip/SliceTable.hpp"
#include "platform/opc/src/zip/ZipError.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <fl/FileDescriptor.hpp>
#include <fl/filesystem.hpp>
#include <foundation/Clock.hpp>

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>

namespace opc::zip {

namespace {

// Encoded items up to this size stay in memory until the save, so that small items come last in the
// file, where they are cheap to replace.
constexpr std::size_t kLargestInMemory = std::size_t{1} << 20;
constexpr std::size_t kWriteSize = std::size_t{256} << 10;

// The zip format's date (upper half) and time (lower half): years count from 1980, seconds in steps
// of two. Times that cannot be represented become the nearest one that can.
std::uint32_t dosDateAndTime(foundation::clock::Seconds time) {
    using namespace std::chrono;
    constexpr sys_days kFirst = year{1980} / January / 1;
    constexpr sys_days kBehind = year{2108} / January / 1;
    const auto clamped = std::clamp<sys_seconds>(time, kFirst, sys_seconds(kBehind) - seconds(1));
    const auto day = floor<days>(clamped);
    const year_month_day date(day);
    const hh_mm_ss clock(clamped - day);
    const auto dosDate = static_cast<std::uint32_t>(int(date.year()) - 1980) << 9 |
                         unsigned(date.month()) << 5 | unsigned(date.day());
    const auto dosTime = static_cast<std::uint32_t>(
        clock.hours().count() << 11 | clock.minutes().count() << 5 | clock.seconds().count() / 2);
    return dosDate << 16 | dosTime;
}

std::uint16_t flagsFor(std::string_view name) {
    return ascii::isAscii(name) ? 0 : format::flag::kUtf8;
}

// Spills to the end of the new archive.
class SpillToArchive final : public Spill {
public:
    // `archive` is the writer's own pointer, which becomes null when the writer is spent.
    explicit SpillToArchive(const std::unique_ptr<NewArchive>& archive) : archive_(&archive) {}
    ~SpillToArchive() override {
        if (!isKept_ && *archive_) (*archive_)->cancelItem();
    }
    void append(std::span<const std::byte> bytes) override { (*archive_)->file().append(bytes); }
    // NewArchive::endItem() replaces these placeholders.
    void describe(NewItem& item) override { item.content = NewItem::InNewFile{nullptr, 0}; }
    void keep() noexcept override { isKept_ = true; }

private:
    const std::unique_ptr<NewArchive>* archive_;
    bool isKept_ = false;
};

// Spills to an unnamed scratch file, because another item is being written at the archive's end.
class SpillToScratchFile final : public Spill {
public:
    SpillToScratchFile(fl::filesystem::FileDescriptor file, const fl::filesystem::path& name)
        : file_(std::move(file)), name_(name) {}
    void append(std::span<const std::byte> bytes) override {
        aboutFile(name_, [&] { file_.writeAt(bytes, size_); });
        size_ += bytes.size();
    }
    void describe(NewItem& item) override {
        item.content =
            NewItem::InScratchFile{std::make_shared<const FileSource>(std::move(file_)), 0};
    }
    void keep() noexcept override {}

private:
    fl::filesystem::FileDescriptor file_;
    fl::filesystem::path name_;
    std::uint64_t size_ = 0;
};

}  // namespace

ItemOutput::ItemOutput(ZipWriter& writer, std::string name, const ItemOptions& options)
    : writer_(&writer),
      encoder_(
          options.deflate ? ItemEncoder::Packing::IfItIsWorthwhile : ItemEncoder::Packing::Stored,
          writer.deflaters_) {
    item_.flags = flagsFor(name);
    item_.name = std::move(name);
    item_.dosDateAndTime = dosDateAndTime(foundation::clock::now());
}

ItemOutput::~ItemOutput() = default;

void ItemOutput::checkOpen() const {
    writer_->checkChangeable();
    if (progress_ == Progress::Open) return;
    throwItemError(writer_->path_, displayName(item_.name, true),
                   progress_ == Progress::Failed
                       ? "cannot be written any further after an earlier failure"
                       : "was completed by flush() and cannot be written any further");
}

// Lets the encoder take more content. After a failure nobody knows how much of it was taken.
template <class Step>
void ItemOutput::take(Step step) {
    checkOpen();
    progress_ = Progress::Failed;
    step();
    refuseZip64();
    progress_ = Progress::Open;
}

void ItemOutput::write(std::span<const std::byte> bytes) {
    take([&] { encoder_.write(bytes, *this); });
}

void ItemOutput::writeFrom(const Next& next) {
    take([&] { encoder_.writeFrom(next, *this); });
}

void ItemOutput::flush() {
    if (progress_ == Progress::Complete) return;
    take([&] { encoder_.finish(*this); });
    progress_ = Progress::Failed;
    complete();
    progress_ = Progress::Complete;
}

void ItemOutput::refuseZip64() const {
    const format::ItemRecord record{.compressedSize = encodedSize_, .size = encoder_.size()};
    if (writer_->allowZip64_ || !format::needsZip64(record)) return;
    throwItemError(writer_->path_, displayName(item_.name, true),
                   "has 4 GiB or more, which needs the zip64 extensions that the program does not "
                   "allow");
}

void ItemOutput::append(std::span<const std::byte> bytes) {
    writer_->checkOpen();  // what gives the content may have saved, closed or forked
    encodedSize_ += bytes.size();
    refuseZip64();
    if (!spill_ && encodedSize_ > kLargestInMemory) startSpill();
    if (spill_ && buffer_.empty() && bytes.size() >= kWriteSize) return spill_->append(bytes);
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
    if (spill_ && buffer_.size() >= kWriteSize) drain();
}

void ItemOutput::startSpill() {
    if (writer_->claimEnd(item_)) {
        spill_ = std::make_unique<SpillToArchive>(writer_->archive_);
    } else {
        spill_ = std::make_unique<SpillToScratchFile>(writer_->createScratchFile(), writer_->path_);
    }
    drain();
}

void ItemOutput::drain() {
    spill_->append(buffer_);
    buffer_.clear();
}

void ItemOutput::complete() {
    item_.method = encoder_.method();
    item_.crc32 = encoder_.crc32();
    item_.size = encoder_.size();
    item_.compressedSize = encodedSize_;
    item_.directoryFields = sliceField(encoder_.takeSlices(), item_.size);
    if (spill_) {
        drain();
        spill_->describe(item_);
    } else {
        item_.content = std::make_shared<const MemorySource>(std::move(buffer_));
    }
    writer_->complete(std::move(item_));
    if (spill_) spill_->keep();
}

}  // namespace opc::zip
