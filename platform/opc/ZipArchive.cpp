#include <opc/ZipArchive.hpp>

#include <opc/Exception.hpp>

#include "platform/opc/zip/ArchiveBytes.hpp"
#include "platform/opc/zip/Directory.hpp"
#include "platform/opc/zip/EndRecords.hpp"
#include "platform/opc/zip/FoldedName.hpp"
#include "platform/opc/zip/ItemInput.hpp"
#include "platform/opc/zip/ZipError.hpp"

#include <algorithm>
#include <numeric>

namespace opc::zip {

namespace {

// Far beyond any package, and no more than a machine can hold.
constexpr std::uint64_t kLargestDirectory = std::uint64_t{1} << 30;

fl::filesystem::FileDescriptor openFile(const fl::filesystem::path& file) {
    try {
        return fl::filesystem::FileDescriptor::openForReading(file);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::no_such_file_or_directory) throw;
        throw model::PackageNotFound(displayName(file) + ": there is no such file");
    }
}

}  // namespace

std::string ZipItem::displayName() const {
    return zip::displayName(name, nameIsUtf8);
}

struct ZipArchive::State final : ByteSource {
    explicit State(const fl::filesystem::path& name) : path(name), file(openFile(name)) {}

    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const override {
        return file.readAt(buffer, offset);
    }

    void read();
    void readDirectoryBytes(ArchiveBytes& bytes, const format::DirectoryRecord& record);
    void indexNames();

    fl::filesystem::path path;
    fl::filesystem::FileDescriptor file;
    fl::filesystem::FileStamp stamp;
    std::string directory;
    std::vector<ZipItem> items;
    std::vector<std::uint32_t> byName;  // indexes of items, in FoldedLess order
    std::string comment;
};

void ZipArchive::State::read() {
    stamp = file.stamp();
    ArchiveBytes bytes(file, stamp.size, kEndSearch);
    ArchiveEnd end = readArchiveEnd(bytes, path);
    comment = std::move(end.comment);
    readDirectoryBytes(bytes, end.directory);
    items = readDirectory(directory, end.directory.count, path);
    checkLocalHeaders(items, end.directory.offset, bytes, path);
    indexNames();
}

void ZipArchive::State::readDirectoryBytes(ArchiveBytes& bytes,
                                           const format::DirectoryRecord& record) {
    if (record.size > kLargestDirectory) {
        throwZipError(path, "has a directory of " + std::to_string(record.size) +
                                " bytes; the most that is supported is " +
                                std::to_string(kLargestDirectory));
    }
    directory.resize(record.size);
    bytes.copy(record.offset, std::as_writable_bytes(std::span(directory)));
}

void ZipArchive::State::indexNames() {
    byName.resize(items.size());
    std::iota(byName.begin(), byName.end(), 0u);
    const auto isBefore = [this](std::uint32_t a, std::uint32_t b) {
        return FoldedLess()(items[a].name, items[b].name);
    };
    // Sorted rather than hashed: names can be chosen so that hashes collide.
    std::sort(byName.begin(), byName.end(), isBefore);
    const auto same =
        std::adjacent_find(byName.begin(), byName.end(),
                           [&](std::uint32_t a, std::uint32_t b) { return !isBefore(a, b); });
    if (same == byName.end()) return;
    throwItemError(path, items[same[0]].displayName(),
                   "there is a second item of this name, \"" +
                       printable(items[same[1]].displayName()) +
                       "\": readers could see two different packages");
}

ZipArchive::ZipArchive(std::shared_ptr<const State> state) : state_(std::move(state)) {}
ZipArchive::~ZipArchive() = default;

std::shared_ptr<const ZipArchive> ZipArchive::open(const fl::filesystem::path& file) {
    return aboutFile(file, [&] {
        auto state = std::make_shared<State>(file);
        state->read();
        return std::shared_ptr<const ZipArchive>(new ZipArchive(std::move(state)));
    });
}

const std::vector<ZipItem>& ZipArchive::items() const noexcept {
    return state_->items;
}

const ZipItem* ZipArchive::find(std::string_view name) const noexcept {
    const ZipItem* found = findFolded(name);
    return found && found->name == name ? found : nullptr;
}

const ZipItem* ZipArchive::findFolded(std::string_view name) const noexcept {
    const auto& order = state_->byName;
    const auto at = std::lower_bound(order.begin(), order.end(), name,
                                     [this](std::uint32_t index, std::string_view wanted) {
                                         return FoldedLess()(state_->items[index].name, wanted);
                                     });
    if (at == order.end() || FoldedLess()(name, state_->items[*at].name)) return nullptr;
    return &state_->items[*at];
}

std::unique_ptr<InputStream> ZipArchive::read(const ZipItem& item) const {
    return openItem({.source = state_,
                     .offset = item.dataOffset,
                     .method = item.method,
                     .crc32 = item.crc32,
                     .compressedSize = item.compressedSize,
                     .size = item.size,
                     .file = state_->path,
                     .name = item.displayName()});
}

const std::string& ZipArchive::comment() const noexcept {
    return state_->comment;
}
const fl::filesystem::path& ZipArchive::path() const noexcept {
    return state_->path;
}
const fl::filesystem::FileDescriptor& ZipArchive::file() const noexcept {
    return state_->file;
}
const fl::filesystem::FileStamp& ZipArchive::stamp() const noexcept {
    return state_->stamp;
}

}  // namespace opc::zip
