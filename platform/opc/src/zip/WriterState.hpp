#pragma once

#include "platform/opc/src/zip/ZipWriter.hpp"

#include "platform/opc/src/zip/Deflater.hpp"
#include "platform/opc/src/zip/FoldedName.hpp"
#include "platform/opc/src/zip/NewArchive.hpp"

#include <sys/types.h>

#include <map>
#include <vector>

namespace opc::zip {

// Everything a writer knows, shared with its open streams: a stream that outlives the writer finds it
// closed rather than gone.
class ZipWriter::State : public std::enable_shared_from_this<State> {
public:
    State(const fl::filesystem::path& target, std::shared_ptr<const ZipArchive> base,
          bool allowZip64);

    bool has(std::string_view name) const { return isSet(name) || findKept(name) != nullptr; }
    bool isSet(std::string_view name) const;
    bool replacesFile() const noexcept { return target_.stamp().has_value(); }
    bool changed() const noexcept { return !base_ || !items_.empty() || hasLostKept_; }
    std::unique_ptr<OutputStream> set(std::string_view name, const ItemOptions& options);
    void remove(std::string_view name);
    std::unique_ptr<InputStream> read(std::string_view name) const;
    std::optional<fl::filesystem::FileStamp> save();
    // Drops the new file; whatever is still called throws.
    void close() noexcept;

    // For open streams: the new file when its end is free, to write this item there; null otherwise.
    NewArchive* claimEnd(const NewItem& item);
    fl::filesystem::FileDescriptor createScratchFile() const;
    void complete(NewItem item);
    void checkOpen() const;
    bool isClosed() const noexcept { return isClosed_; }
    bool allowsZip64() const noexcept { return allowZip64_; }
    const std::shared_ptr<DeflaterPool>& deflaters() const noexcept { return deflaters_; }
    const fl::filesystem::path& path() const noexcept { return path_; }

private:
    // Of an item of the base: to be taken over at the end, taken over already, replaced or removed.
    enum class Fate : std::uint8_t { Waiting, Placed, Lost };

    Fate& fateOf(const ZipItem& item) { return fates_[indexOf(item)]; }
    std::size_t indexOf(const ZipItem& item) const noexcept;
    const ZipItem* findKept(std::string_view name) const noexcept;
    const NewItem* findSet(std::string_view name) const;
    void refuseSimilarName(std::string_view name) const;
    void refuseItemsInKept() const;
    void loseKept(std::string_view name) noexcept;
    void enter(std::unique_ptr<NewItem>& slot, std::unique_ptr<NewItem> item) noexcept;
    void settle(NewItem& item);
    void moveToScratchFile(NewItem& item);
    void forgetContent(const NewItem& item) noexcept;
    std::vector<NewItem*> itemsInTurn() const;
    void openArchive(std::string_view firstName);
    template <class Wanted>
    void placeKept(NewArchive& archive, Wanted wanted);

    fl::filesystem::path path_;
    fl::filesystem::SaveTarget target_;
    std::shared_ptr<const ZipArchive> base_;
    bool allowZip64_;
    pid_t process_;
    bool isClosed_ = false;
    std::shared_ptr<DeflaterPool> deflaters_ = std::make_shared<DeflaterPool>();

    std::vector<Fate> fates_;
    bool hasLostKept_ = false;
    std::map<std::string, std::unique_ptr<NewItem>, FoldedLess> items_;
    std::uint64_t nextTurn_ = 0;
    std::uint64_t inMemory_ = 0;
    std::shared_ptr<FileSource> overflow_;  // of small items, once there were too many
    std::uint64_t overflowSize_ = 0;
    std::unique_ptr<NewArchive> archive_;  // once something has been written
};

}  // namespace opc::zip
