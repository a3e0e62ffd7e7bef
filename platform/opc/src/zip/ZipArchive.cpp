#include <opc/ZipArchive.hpp>

#include <opc/Exception.hpp>

#include <foundation/Shown.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/opc/src/salvage/Salvage.hpp"
#include "platform/opc/src/salvage/UnconvertedFile.hpp"
#include "platform/opc/src/zip/ArchiveBytes.hpp"
#include "platform/opc/src/zip/ByteSource.hpp"
#include "platform/opc/src/zip/Directory.hpp"
#include "platform/opc/src/zip/EndRecords.hpp"
#include "platform/opc/src/zip/HiddenItems.hpp"
#include "platform/opc/src/zip/InflatedSlices.hpp"
#include "platform/opc/src/zip/ItemInput.hpp"
#include "platform/opc/src/zip/NameIndex.hpp"
#include "platform/opc/src/zip/SliceTable.hpp"
#include "platform/opc/src/zip/ZipError.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

namespace opc::zip {

namespace {

// Far more than any package has, and little enough to be read into memory.
constexpr std::uint64_t kLargestDirectory = std::uint64_t{1} << 30;

fl::filesystem::FileDescriptor openFile(const fl::filesystem::path& file) {
    try {
        return fl::filesystem::FileDescriptor::openForReading(file);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::no_such_file_or_directory) throw;
        throw model::PackageNotFound(foundation::shown(file) + ": there is no such file");
    }
}

}  // namespace

bool holdsZipSignature(const fl::filesystem::FileDescriptor& file) {
    const std::uint64_t size = file.stamp().size;
    ArchiveBytes bytes(file, size, 0);
    return std::ranges::any_of(
        std::array{format::local::kSignature, format::central::kSignature, format::end::kSignature},
        [&](std::uint32_t signature) { return bytes.find(signature, 0, size).has_value(); });
}

ZipRefusal::ZipRefusal(ZipRule rule, const std::string& message)
    : Exception(message), rule_(rule) {}
ZipRefusal::~ZipRefusal() = default;

std::string ZipItem::displayName() const {
    return zip::displayName(name, nameIsUtf8);
}

struct ZipArchive::State {
    explicit State(const fl::filesystem::path& name)
        : path(name),
          source(std::make_shared<FileSource>(openFile(name))),
          itemSource(source),
          stamp(file().stamp()) {}

    void read(ArchiveBytes& bytes);
    void readDirectoryBytes(ArchiveBytes& bytes, const format::DirectoryRecord& record);
    void salvage(std::vector<LostItem>& lost, std::span<const std::string> expected);
    ItemContent contentOf(const ZipItem& item) const;
    const fl::filesystem::FileDescriptor& file() const { return source->file(); }

    fl::filesystem::path path;
    std::shared_ptr<const FileSource> source;
    std::shared_ptr<const ByteSource> itemSource;
    fl::filesystem::FileStamp stamp;
    bool isConverted = false;  // `itemSource` is the file as it was before a conversion
    std::string directory;
    std::vector<ZipItem> items;
    NameIndex names;
    std::string comment;
    ArchiveBounds bounds;
};

void ZipArchive::State::read(ArchiveBytes& bytes) {
    ArchiveEnd end = readArchiveEnd(bytes, path);
    comment = std::move(end.comment);
    bounds = {end.directory.offset, end.fileEnd};
    readDirectoryBytes(bytes, end.directory);
    items = readItems(directory, end.directory, bytes, path);
    names = NameIndex(items, path);
    names.addResolvedNames(path);
}

void ZipArchive::State::readDirectoryBytes(ArchiveBytes& bytes,
                                           const format::DirectoryRecord& record) {
    if (record.size > kLargestDirectory) {
        refuseZip(ZipRule::Directory, path,
                  "has a directory of " + std::to_string(record.size) +
                      " bytes; the most that is supported is " + std::to_string(kLargestDirectory));
    }
    directory.resize(record.size);
    bytes.copy(record.offset, std::as_writable_bytes(std::span(directory)));
}

void ZipArchive::State::salvage(std::vector<LostItem>& lost,
                                std::span<const std::string> expected) {
    Salvaged found = salvageItems({source, stamp.size, &path}, expected);
    if (const auto unconverted = found.isExact ? nullptr : UnconvertedFile::of(source)) {
        Salvaged before = salvageItems({unconverted, unconverted->size(), &path}, expected);
        isConverted = isConversionOf(before, found, *unconverted);
        if (isConverted) {
            found = std::move(before);
            itemSource = unconverted;
        }
    }
    items = std::move(found.items);
    names = NameIndex(items, path);
    lost = std::move(found.lost);
}

ZipArchive::ZipArchive(std::shared_ptr<const State> state) : state_(std::move(state)) {}
ZipArchive::~ZipArchive() = default;

std::shared_ptr<const ZipArchive> ZipArchive::open(const fl::filesystem::path& file) {
    return aboutFile(file, [&] {
        auto state = std::make_shared<State>(file);
        ArchiveBytes bytes(state->file(), state->stamp.size, kEndSearch);
        state->read(bytes);
        std::shared_ptr<const ZipArchive> archive(new ZipArchive(std::move(state)));
        refuseItemsInSmallData(*archive, bytes);
        return archive;
    });
}

std::shared_ptr<const ZipArchive> ZipArchive::salvage(const fl::filesystem::path& file,
                                                      std::vector<LostItem>& lost,
                                                      std::span<const std::string> expected) {
    return aboutFile(file, [&] {
        auto state = std::make_shared<State>(file);
        state->salvage(lost, expected);
        return std::shared_ptr<const ZipArchive>(new ZipArchive(std::move(state)));
    });
}

const std::vector<ZipItem>& ZipArchive::items() const noexcept {
    return state_->items;
}

const std::vector<const ZipItem*>& ZipArchive::itemsByName() const noexcept {
    return state_->names.inOrder();
}

const ZipItem* ZipArchive::find(std::string_view name) const noexcept {
    const ZipItem* found = state_->names.find(name);
    return found && found->name == name ? found : nullptr;
}

const ZipItem* ZipArchive::findSimilar(std::string_view name) const {
    return state_->names.findSimilar(name);
}

namespace {

// The extra fields of the item's directory record, which a salvaged item has not.
format::Bytes extraFieldsOf(const ZipItem& item) {
    const format::Bytes record = format::asBytes(item.directoryRecord);
    if (record.empty()) return {};
    return record.subspan(format::central::kHeaderSize + item.name.size())
        .first(format::load16(record, format::central::kExtraLength));
}

std::optional<SliceTable> slicesOf(const ZipItem& item) {
    if (item.method != Method::Deflated) return std::nullopt;
    return findSliceTable(extraFieldsOf(item), item.size, item.compressedSize);
}

}  // namespace

ItemContent ZipArchive::State::contentOf(const ZipItem& item) const {
    return {.source = itemSource,
            .offset = item.dataOffset,
            .method = item.method,
            .crc32 = item.crc32,
            .compressedSize = item.compressedSize,
            .size = item.size,
            .hasDescriptor = item.hasDescriptor,
            .slices = slicesOf(item),
            .file = path,
            .name = item.displayName()};
}

std::unique_ptr<InputStream> ZipArchive::read(const ZipItem& item) const {
    return openItem(state_->contentOf(item));
}

bool ZipArchive::verify(const ZipItem& item) const {
    const auto ignore = [](std::span<const std::byte>) {};
    ItemContent content = state_->contentOf(item);
    SlicesTaken taken{.hasMisfit = hasSliceTable(extraFieldsOf(item))};
    if (content.slices) taken = inflateSlices(content, ignore);
    if (taken.size == item.size && item.size != 0) return true;
    content.slices.reset();
    openItem(std::move(content))->readTo(ignore);
    return !taken.hasMisfit;
}

bool ZipArchive::isConverted() const noexcept {
    return state_->isConverted;
}
const std::string& ZipArchive::comment() const noexcept {
    return state_->comment;
}
const ArchiveBounds& ZipArchive::bounds() const noexcept {
    return state_->bounds;
}
const fl::filesystem::path& ZipArchive::path() const noexcept {
    return state_->path;
}
const fl::filesystem::FileDescriptor& ZipArchive::file() const noexcept {
    return state_->file();
}
const fl::filesystem::FileStamp& ZipArchive::stamp() const noexcept {
    return state_->stamp;
}

}  // namespace opc::zip
