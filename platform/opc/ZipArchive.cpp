#include <opc/ZipArchive.hpp>

#include <opc/Exception.hpp>

#include <foundation/Shown.hpp>

#include "platform/opc/zip/ArchiveBytes.hpp"
#include "platform/opc/zip/Directory.hpp"
#include "platform/opc/zip/EndRecords.hpp"
#include "platform/opc/zip/FoldedName.hpp"
#include "platform/opc/zip/ItemInput.hpp"
#include "platform/opc/zip/Salvage.hpp"
#include "platform/opc/zip/ZipError.hpp"

#include <algorithm>
#include <map>
#include <optional>

namespace opc::zip {

namespace {

// Far beyond any package, and no more than a machine can hold.
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

std::string ZipItem::displayName() const {
    return zip::displayName(name, nameIsUtf8);
}

struct ZipArchive::State final : ByteSource {
    explicit State(const fl::filesystem::path& name) : path(name), file(openFile(name)) {}

    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const override {
        return file.readAt(buffer, offset);
    }

    void read();
    // The directory alone, where it is whole.
    std::optional<std::vector<ZipItem>> readDirectoryIfWhole();
    void readDirectoryBytes(ArchiveBytes& bytes, const format::DirectoryRecord& record);
    void indexNames();
    void indexResolvedNames();
    const ZipItem* findFolded(std::string_view name) const noexcept;
    [[noreturn]] void refuseSameNames(const ZipItem& one, const ZipItem& other) const;

    fl::filesystem::path path;
    fl::filesystem::FileDescriptor file;
    fl::filesystem::FileStamp stamp;
    std::string directory;
    std::vector<ZipItem> items;
    std::vector<const ZipItem*> byName;  // in FoldedLess order
    // Those that some readers resolve to other names, under these names.
    std::map<std::string, const ZipItem*, FoldedLess> byResolvedName;
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
    indexResolvedNames();
}

std::optional<std::vector<ZipItem>> ZipArchive::State::readDirectoryIfWhole() {
    try {
        ArchiveBytes bytes(file, stamp.size, kEndSearch);
        ArchiveEnd end = readArchiveEnd(bytes, path);
        readDirectoryBytes(bytes, end.directory);
        return readDirectory(directory, end.directory.count, path);
    } catch (const Exception&) {
        return std::nullopt;
    }
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
    // Folded once, so that comparing is comparing memory. Sorted rather than hashed: names can be
    // chosen so that hashes collide.
    std::string folded;
    folded.reserve(directory.size());
    std::vector<std::pair<std::string_view, const ZipItem*>> order;
    order.reserve(items.size());
    for (const ZipItem& item : items) {
        const std::size_t start = folded.size();
        for (const char c : item.name)
            folded += static_cast<char>(foldedByte(c));
        order.emplace_back(std::string_view(folded).substr(start), &item);
    }
    std::ranges::sort(order);
    byName.reserve(order.size());
    for (const auto& [name, item] : order)
        byName.push_back(item);
    const auto same = std::ranges::adjacent_find(order, {}, &decltype(order)::value_type::first);
    if (same != order.end()) refuseSameNames(*same[0].second, *same[1].second);
}

const ZipItem* ZipArchive::State::findFolded(std::string_view name) const noexcept {
    const auto at = std::lower_bound(byName.begin(), byName.end(), name,
                                     [](const ZipItem* item, std::string_view wanted) {
                                         return FoldedLess()(item->name, wanted);
                                     });
    if (at == byName.end() || FoldedLess()(name, (*at)->name)) return nullptr;
    return *at;
}

void ZipArchive::State::refuseSameNames(const ZipItem& one, const ZipItem& other) const {
    throwItemError(path, one.displayName(),
                   "there is a second item of this name, \"" +
                       foundation::shown(other.displayName()) +
                       "\": readers could see two different packages; remove one of them");
}

void ZipArchive::State::indexResolvedNames() {
    for (const ZipItem& item : items) {
        if (!mayResolve(item.name)) continue;
        const auto [found, isNew] = byResolvedName.try_emplace(resolvedName(item.name), &item);
        if (!isNew) refuseSameNames(*found->second, item);
    }
    for (const auto& [name, item] : byResolvedName) {
        const ZipItem* const other = findFolded(name);
        if (other && other != item) refuseSameNames(*item, *other);
    }
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

std::shared_ptr<const ZipArchive> ZipArchive::salvage(const fl::filesystem::path& file,
                                                      std::vector<LostItem>& lost) {
    return aboutFile(file, [&] {
        auto state = std::make_shared<State>(file);
        state->stamp = state->file.stamp();
        auto listed = state->readDirectoryIfWhole();
        const SalvageSource source{state, state->stamp.size, &state->path};
        state->items = salvageItems(source, std::move(listed), lost);
        state->indexNames();
        return std::shared_ptr<const ZipArchive>(new ZipArchive(std::move(state)));
    });
}

const std::vector<ZipItem>& ZipArchive::items() const noexcept {
    return state_->items;
}

const std::vector<const ZipItem*>& ZipArchive::itemsByName() const noexcept {
    return state_->byName;
}

const ZipItem* ZipArchive::find(std::string_view name) const noexcept {
    const ZipItem* found = findFolded(name);
    return found && found->name == name ? found : nullptr;
}

const ZipItem* ZipArchive::findFolded(std::string_view name) const noexcept {
    if (const ZipItem* found = state_->findFolded(name)) return found;
    const auto resolved = state_->byResolvedName.find(name);
    return resolved == state_->byResolvedName.end() ? nullptr : resolved->second;
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
