#pragma once

#include <opc/Streams.hpp>
#include <opc/ZipArchive.hpp>

#include <fl/ReplacementFile.hpp>

#include "platform/opc/src/zip/Deflate.hpp"
#include "platform/opc/src/zip/NameIndex.hpp"
#include "platform/opc/src/zip/NewArchive.hpp"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace opc::zip {

struct ItemOptions {
    bool deflate = true;  // store instead when a sample shows that the content hardly shrinks
};

// The new content of a zip file: items of an earlier archive that are kept as they are, and items set
// anew. Small items wait in memory, deflated; a large one is deflated once, straight into the new
// file, while it is written. save() takes the kept items over in as few ranges as possible, and puts
// the new file in the place of the old. Nothing on disk changes before that, and destroying a writer
// leaves nothing behind. Failures are opc::Exception. For one thread at a time.
class ZipWriter {
public:
    // Writes `target`, which need not exist. `base`, when not null, is the archive at `target` whose
    // items are kept unless set or removed.
    ZipWriter(const fl::filesystem::path& target, std::shared_ptr<const ZipArchive> base,
              bool allowZip64);
    ZipWriter(const ZipWriter&) = delete;
    ZipWriter& operator=(const ZipWriter&) = delete;
    ~ZipWriter() = default;

    // Whether the new file holds an item of this name (compared exactly), and whether it was set in
    // this session.
    bool has(std::string_view name) const { return isSet(name) || findKept(name) != nullptr; }
    bool isSet(std::string_view name) const { return findSet(name) != nullptr; }

    // Replaces or adds an item as a whole when the returned stream is flushed, which ends the stream;
    // one that is destroyed before leaves the item as it was. Several may be open at once. They must
    // not outlive the writer, and throw once it is saved. Refuses a name that some readers
    // would take for another item's: one that differs only in case or slashes, or, from an item of the
    // earlier archive, in dot segments or percent-encodings.
    std::unique_ptr<OutputStream> set(std::string_view name, const ItemOptions& options);
    void remove(std::string_view name);
    // The current content: of the base, or as set in this session. The stream stays valid without
    // the writer, but is not to be read after the item is set again or removed in it.
    std::unique_ptr<InputStream> read(std::string_view name) const;

    // Whether there was a file to be replaced when the writer was made.
    bool replacesFile() const noexcept { return target_.stamp().has_value(); }
    bool changed() const noexcept { return !base_ || !items_.empty() || hasLostKept_; }
    // Returns the stamp of the file that it wrote; does nothing when nothing changed, and returns
    // none. Afterwards, also when it throws, the writer is spent.
    std::optional<fl::filesystem::FileStamp> save();

private:
    friend class ItemOutput;  // the streams of set()

    // Lets a stream write this item at the end of the new file; false when another item is being written
    // there.
    bool claimEnd(const NewItem& item);
    fl::filesystem::FileDescriptor createScratchFile() const;
    void complete(NewItem item);
    void checkOpen() const;

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
    std::optional<fl::filesystem::FileStamp> writeAll();
    void openArchive(std::string_view firstName);
    template <class Wanted>
    void placeKept(NewArchive& archive, Wanted wanted);

    fl::filesystem::path path_;
    fl::filesystem::SaveTarget target_;
    std::shared_ptr<const ZipArchive> base_;
    bool allowZip64_;
    pid_t process_;
    bool isSpent_ = false;
    DeflaterPool deflaters_;

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
