#include <opc/Repack.hpp>

#include <opc/Streams.hpp>

#include "platform/opc/src/Ascii.hpp"
#include "platform/opc/src/zip/Deflate.hpp"
#include "platform/opc/src/zip/ItemEncoder.hpp"
#include "platform/opc/src/zip/SliceTable.hpp"
#include "platform/opc/src/zip/StoredBlocks.hpp"
#include "platform/opc/src/zip/StrayRecords.hpp"
#include "platform/opc/src/zip/ZipError.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace opc::zip {

namespace {

using fl::filesystem::FileDescriptor;

// The first of January 1980, at midnight.
constexpr std::uint32_t kEarliest = 1 << 21 | 1 << 16;
// A deflated item of at least this size may have 4 GiB of data.
constexpr std::uint64_t kMayGrowWide = std::uint64_t{1} << 30;
constexpr std::size_t kGathered = std::size_t{256} << 10;

// The new file, written from its front; small pieces are gathered.
class Output final : public ByteSink {
public:
    Output(FileDescriptor& file, const fl::filesystem::path& name) : file_(&file), name_(&name) {}

    std::uint64_t tail() const noexcept { return written_ + gathered_.size(); }
    void append(std::span<const std::byte> bytes) override {
        gathered_.insert(gathered_.end(), bytes.begin(), bytes.end());
        if (gathered_.size() >= kGathered) flush();
    }
    void append(std::string_view bytes) { append(format::asBytes(bytes)); }
    void flush() {
        aboutFile(*name_, [&] { file_->writeAt(gathered_, written_); });
        written_ += gathered_.size();
        gathered_.clear();
    }
    void overwrite(std::string_view bytes, std::uint64_t offset) {
        flush();
        aboutFile(*name_, [&] { file_->writeAt(format::asBytes(bytes), offset); });
    }
    void cutAt(std::uint64_t offset) {
        flush();
        aboutFile(*name_, [&] { file_->truncate(offset); });
        written_ = offset;
    }

private:
    FileDescriptor* file_;
    const fl::filesystem::path* name_;
    std::uint64_t written_ = 0;
    std::vector<std::byte> gathered_;
};

class Repacking {
public:
    Repacking(const ZipArchive& archive, Method method, FileDescriptor& file,
              const fl::filesystem::path& name)
        : archive_(archive), file_(file), name_(name), output_(file, name) {
        for (const ZipItem& item : archive.items()) {
            const bool isDeflated = method == Method::Deflated && item.size != 0;
            items_.push_back({.item = &item, .form = isDeflated ? Form::Deflated : Form::Stored});
        }
        std::ranges::sort(
            items_, {}, [](const Placed& placed) -> std::string_view { return placed.item->name; });
    }

    void run() {
        writeFrom(0);
        while (const auto stray = findStrayRecord()) {
            const std::size_t mistakable = itemAt(*stray);
            items_[mistakable].form = Form::InBlocks;
            output_.cutAt(items_[mistakable].offset);
            writeFrom(mistakable);
        }
    }

private:
    enum class Form { Stored, Deflated, InBlocks };
    struct Placed {
        const ZipItem* item;
        Form form;
        std::uint64_t offset = 0;
        std::uint64_t compressedSize = 0;
        std::string directoryFields = {};
    };

    // By the system that a record was made by, some readers know what the bytes of a name mean.
    static std::uint8_t systemOf(const ZipItem& item) {
        return static_cast<std::uint8_t>(item.directoryRecord[format::central::kSystemMadeBy]);
    }

    format::ItemRecord recordOf(const Placed& placed) const {
        const ZipItem& item = *placed.item;
        const bool isAscii = ascii::isAscii(item.name);
        const bool isUtf8 = item.nameIsUtf8 && !isAscii;
        const Method method = placed.form == Form::Stored ? Method::Stored : Method::Deflated;
        return {.name = item.name,
                .system = isAscii || isUtf8 ? std::uint8_t{0} : systemOf(item),
                .flags = isUtf8 ? format::flag::kUtf8 : std::uint16_t{0},
                .method = static_cast<std::uint16_t>(method),
                .dosDateAndTime = kEarliest,
                .crc32 = item.crc32,
                .compressedSize = placed.compressedSize,
                .size = item.size,
                .offset = placed.offset,
                .directoryFields = placed.directoryFields};
    }

    std::string headerOf(const Placed& placed) const {
        const bool mayGrow = placed.form != Form::Stored && placed.item->size >= kMayGrowWide;
        return format::localHeader(recordOf(placed),
                                   mayGrow ? format::SizeRoom::Growing : format::SizeRoom::Exact);
    }

    // Writes the items from this one on, the directory and the end.
    void writeFrom(std::size_t first) {
        for (std::size_t i = first; i < items_.size(); ++i)
            writeItem(items_[i]);
        std::string directory;
        for (const Placed& placed : items_)
            directory += format::centralRecord(recordOf(placed));
        const format::DirectoryRecord record{items_.size(), directory.size(), output_.tail()};
        output_.append(directory);
        output_.append(format::endRecords(record, ""));
        output_.flush();
    }

    void writeItem(Placed& placed) {
        placed.offset = output_.tail();
        placed.compressedSize = placed.item->size;
        const std::string header = headerOf(placed);
        output_.append(header);
        const std::uint64_t dataOffset = output_.tail();
        writeContent(placed);
        if (placed.form == Form::Stored) return;
        placed.compressedSize = output_.tail() - dataOffset;
        output_.overwrite(headerOf(placed), placed.offset);
    }

    void writeContent(Placed& placed) {
        const auto content = archive_.read(*placed.item);
        switch (placed.form) {
            case Form::Stored:
                return content->readTo(
                    [&](std::span<const std::byte> bytes) { output_.append(bytes); });
            case Form::InBlocks:
                return writeStoredBlocks(*content, output_);
            case Form::Deflated:
                ItemEncoder encoder(ItemEncoder::Packing::Deflated, deflaters_);
                encoder.writeFrom(
                    [&](std::span<std::byte> buffer) { return content->read(buffer); }, output_);
                encoder.finish(output_);
                placed.directoryFields = sliceField(encoder.takeSlices(), placed.item->size);
        }
    }

    // Opens the new file as its readers will.
    std::optional<std::uint64_t> findStrayRecord() const {
        try {
            ZipArchive::open(aboutFile(name_, [&] { return file_.privateName(u"new.zip"); }));
            return std::nullopt;
        } catch (const StrayRecord& stray) {
            return stray.offset();
        }
    }

    std::size_t itemAt(std::uint64_t offset) const {
        const auto next = std::ranges::upper_bound(items_, offset, {}, &Placed::offset);
        const std::size_t index = static_cast<std::size_t>(next - items_.begin()) - 1;
        if (next != items_.begin() && items_[index].form != Form::InBlocks) return index;
        throwZipError(name_, "was not written, because readers could see two packages in it");
    }

    const ZipArchive& archive_;
    FileDescriptor& file_;
    const fl::filesystem::path& name_;
    Output output_;
    DeflaterPool deflaters_;
    std::vector<Placed> items_;
};

bool isAboutLayout(std::uint16_t identifier) {
    using namespace format::extra;
    return identifier == kZip64 || identifier == kGrowthHint || identifier == kSlices;
}

bool saysMoreThanLayout(format::Bytes fields) {
    bool saysMore = false;
    format::forEachExtra(fields, [&](const format::ExtraField& field) {
        saysMore = saysMore || !isAboutLayout(field.identifier);
    });
    return saysMore;
}

// The extra fields of the local header.
std::vector<std::byte> localFields(const ZipArchive& archive, const ZipItem& item) {
    const std::uint64_t from = item.headerOffset + format::local::kHeaderSize + item.name.size();
    std::vector<std::byte> fields(item.dataOffset - from);
    aboutFile(archive.path(), [&] { fields.resize(archive.file().readAt(fields, from)); });
    return fields;
}

LeftOut leftOutOf(const ZipArchive& archive) {
    using namespace format;
    LeftOut leftOut{.commentBytes = archive.comment().size()};
    std::uint64_t end = 0;
    for (const ZipItem& item : archive.items()) {
        leftOut.bytes += item.headerOffset - end;
        end = item.endOffset;
        const Bytes record = asBytes(item.directoryRecord);
        const Bytes fields = record.subspan(central::kHeaderSize + item.name.size(),
                                            load16(record, central::kExtraLength));
        leftOut.comments += load16(record, central::kCommentLength) != 0;
        leftOut.extraFields +=
            saysMoreThanLayout(fields) || saysMoreThanLayout(localFields(archive, item));
    }
    leftOut.bytes += archive.bounds().directory - end;
    leftOut.bytes += archive.stamp().size - archive.bounds().fileEnd;
    return leftOut;
}

}  // namespace

LeftOut repack(const ZipArchive& archive, Method method, FileDescriptor& file,
               const fl::filesystem::path& name) {
    Repacking(archive, method, file, name).run();
    return leftOutOf(archive);
}

}  // namespace opc::zip
