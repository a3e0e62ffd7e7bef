#include "platform/opc/src/zip/ZipWriter.hpp"

#include <foundation/Shown.hpp>

#include "platform/opc/src/zip/HiddenItems.hpp"
#include "platform/opc/src/zip/ItemInput.hpp"
#include "platform/opc/src/zip/ItemOutput.hpp"
#include "platform/opc/src/zip/ZipError.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <utility>
#include <variant>

namespace opc::zip {

namespace {

// Before a large new item is written, items of the base of at least this size are taken over, so
// that they stay in front of it. Smaller ones come after it, where replacing them is cheap.
constexpr std::uint64_t kLarge = std::uint64_t{1} << 20;
// The bytes of all encoded items that wait in memory. Items past this limit are written to the new
// file when they are completed.
constexpr std::uint64_t kMostInMemory = std::uint64_t{8} << 20;

}  // namespace

ZipWriter::ZipWriter(const fl::filesystem::path& target, std::shared_ptr<const ZipArchive> base,
                     bool allowZip64)
    : path_(target),
      target_(aboutTarget([&] { return fl::filesystem::SaveTarget(target); })),
      base_(std::move(base)),
      allowZip64_(allowZip64) {
    if (!base_) return;
    target_.expect(base_->stamp());
    fates_.resize(base_->items().size(), Fate::Waiting);
}

// The new file is in the middle of a change when a report is called.
void ZipWriter::refuseInReport() const {
    if (!isReporting_) return;
    throwZipError(path_,
                  "cannot be changed or saved by a function that follows a save; do it when the "
                  "call that it follows has returned");
}

void ZipWriter::checkChangeable() const {
    refuseInReport();
    checkOpen();
}

void ZipWriter::checkOpen() const {
    if (isSpent_)
        throwZipError(path_, "has been saved or closed already; open it again to change it");
    if (!process_.isOfThisProcess()) throwForked(path_);
}

std::size_t ZipWriter::indexOf(const ZipItem& item) const noexcept {
    return static_cast<std::size_t>(&item - base_->items().data());
}

const ZipItem* ZipWriter::findKept(std::string_view name) const noexcept {
    const ZipItem* item = base_ ? base_->find(name) : nullptr;
    return item && fates_[indexOf(*item)] != Fate::Lost ? item : nullptr;
}

const NewItem* ZipWriter::findSet(std::string_view name) const {
    const auto found = items_.find(name);
    return found != items_.end() && found->second->name == name ? found->second.get() : nullptr;
}

// Without this check, the new file could not be opened again.
void ZipWriter::refuseSimilarName(std::string_view name) const {
    const auto refuse = [&](std::string_view taken, bool isUtf8) {
        throwItemError(path_, displayName(name, true),
                       "some readers would take it for \"" +
                           foundation::shown(displayName(taken, isUtf8)) +
                           "\", which is in the file; choose another name or remove that item");
    };
    const ZipItem* kept = base_ ? base_->findSimilar(name) : nullptr;
    if (kept && kept->name != name && fates_[indexOf(*kept)] != Fate::Lost) {
        refuse(kept->name, kept->nameIsUtf8);
    }
    const auto set = items_.find(name);
    if (set != items_.end() && set->second->name != name) refuse(set->second->name, true);
}

std::unique_ptr<OutputStream> ZipWriter::set(std::string_view name, const ItemOptions& options) {
    checkChangeable();
    refuseSimilarName(name);
    if (name.size() > format::kInZip64_16 || name.find('\0') != name.npos) {
        throwItemError(path_, displayName(name, true),
                       "is not a name that a zip file can hold; choose one of at most 65,535 bytes "
                       "without a zero byte");
    }
    return std::make_unique<ItemOutput>(*this, std::string(name), options);
}

void ZipWriter::loseKept(std::string_view name) noexcept {
    const ZipItem* item = findKept(name);
    if (!item) return;
    if (fateOf(*item) == Fate::Placed) archive_->drop(*item);
    fateOf(*item) = Fate::Lost;
    hasLostKept_ = true;
}

void ZipWriter::remove(std::string_view name) {
    checkChangeable();
    loseKept(name);
    const auto found = items_.find(name);
    if (found == items_.end() || found->second->name != name) return;
    forgetContent(*found->second);
    items_.erase(found);
}

std::unique_ptr<InputStream> ZipWriter::read(std::string_view name) const {
    checkOpen();
    if (const NewItem* item = findSet(name)) return openItem(item->contentIn(path_));
    if (const ZipItem* item = findKept(name)) return base_->read(*item);
    throwItemError(path_, displayName(name, true), "there is no such item");
}

// Takes over the waiting items of the base that `wanted` accepts. If that fails, they keep waiting.
template <class Wanted>
void ZipWriter::placeKept(NewArchive& archive, Wanted wanted) {
    if (!base_) return;
    std::vector<const ZipItem*> items;
    for (const ZipItem& item : base_->items()) {
        if (fateOf(item) == Fate::Waiting && wanted(item)) items.push_back(&item);
    }
    archive.appendKept(items);
    for (const ZipItem* const item : items)
        fateOf(*item) = Fate::Placed;
}

// Starts the new file with the large items of the base. The item `firstName` is about to be
// written; if it replaces one of the base, only the items in front of that are taken over.
void ZipWriter::openArchive(std::string_view firstName) {
    if (archive_) return;
    auto archive = std::make_unique<NewArchive>(target_, path_, base_, isReporting_);
    const ZipItem* replaced = findKept(firstName);
    placeKept(*archive, [&](const ZipItem& item) {
        return item.compressedSize >= kLarge && (!replaced || &item < replaced);
    });
    archive_ = std::move(archive);
}

bool ZipWriter::claimEnd(const NewItem& item) {
    openArchive(item.name);
    if (archive_->isWriting()) return false;
    archive_->startItem(item);
    return true;
}

fl::filesystem::FileDescriptor ZipWriter::createScratchFile() const {
    return aboutTarget([this] { return target_.createScratchFile(); });
}

// Sets an item. All that can fail comes first, so that a failure leaves the item of this name as it
// was.
void ZipWriter::complete(NewItem item) {
    auto completed = std::make_unique<NewItem>(std::move(item));
    const auto [slot, isNew] = items_.try_emplace(completed->name);
    try {
        settle(*completed);
    } catch (...) {
        if (isNew) items_.erase(slot);
        throw;
    }
    enter(slot->second, std::move(completed));
}

// Puts the content of a completed item where it waits for the save. An item at the end of the new
// file only gets its header. An item in memory is written out if too many bytes would wait there.
void ZipWriter::settle(NewItem& item) {
    if (std::holds_alternative<NewItem::InNewFile>(item.content)) return archive_->endItem(item);
    if (!std::holds_alternative<NewItem::InMemory>(item.content)) return;
    if (inMemory_ + item.compressedSize <= kMostInMemory) {
        inMemory_ += item.compressedSize;
    } else if (archive_ && archive_->isWriting()) {
        moveToScratchFile(item);
    } else {
        openArchive(item.name);
        archive_->append(item);
    }
}

// All items share one scratch file, because a process may have fewer file descriptors than there
// are items.
void ZipWriter::moveToScratchFile(NewItem& item) {
    if (!overflow_) overflow_ = std::make_shared<FileSource>(createScratchFile());
    const auto bytes = std::get<NewItem::InMemory>(item.content)->bytes();
    aboutFile(path_, [&] { overflow_->write(bytes, overflowSize_); });
    overflowSize_ += bytes.size();
    item.content = NewItem::InScratchFile{overflow_, overflowSize_ - item.compressedSize};
}

// Puts the item into its slot of items_. It keeps the turn of an item that it replaces there.
void ZipWriter::enter(std::unique_ptr<NewItem>& slot, std::unique_ptr<NewItem> item) noexcept {
    loseKept(item->name);
    if (slot) forgetContent(*slot);
    item->turn = slot ? slot->turn : nextTurn_++;
    slot = std::move(item);
}

std::vector<NewItem*> ZipWriter::itemsInTurn() const {
    std::vector<NewItem*> items;
    items.reserve(items_.size());
    for (const auto& [name, item] : items_)
        items.push_back(item.get());
    std::ranges::sort(items, {}, &NewItem::turn);
    return items;
}

void ZipWriter::forgetContent(const NewItem& item) noexcept {
    if (std::holds_alternative<NewItem::InMemory>(item.content)) inMemory_ -= item.compressedSize;
    if (archive_) archive_->drop(item);
}

// Opening the base looked only through its small items. The large ones are looked through before
// they get into a new file, which readers must not see as two packages.
void ZipWriter::refuseItemsInKept() const {
    if (!base_) return;
    for (const ZipItem& item : base_->items()) {
        if (fates_[indexOf(item)] != Fate::Lost) refuseItemsInLargeData(*base_, item);
    }
}

std::optional<fl::filesystem::FileStamp> ZipWriter::writeAll() {
    refuseItemsInKept();
    if (!archive_) archive_ = std::make_unique<NewArchive>(target_, path_, base_, isReporting_);
    archive_->cancelItem();  // a stream that is still open has set nothing
    placeKept(*archive_, [](const ZipItem&) { return true; });
    for (NewItem* item : itemsInTurn()) {
        if (!std::holds_alternative<NewItem::InNewFile>(item->content)) archive_->append(*item);
    }
    return archive_->finish(allowZip64_);
}

std::optional<fl::filesystem::FileStamp> ZipWriter::save() {
    checkChangeable();
    const auto spend = [this](ZipWriter*) {
        isSpent_ = true;
        archive_.reset();
    };
    const std::unique_ptr<ZipWriter, decltype(spend)> spent(this, spend);
    return changed() ? writeAll() : std::nullopt;
}

}  // namespace opc::zip
