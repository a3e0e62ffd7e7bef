#pragma once

#include <opc/Streams.hpp>
#include <opc/ZipArchive.hpp>

#include <fl/FileDescriptor.hpp>
#include <fl/ReplacementFile.hpp>
#include <fl/filesystem.hpp>
#include <foundation/ProcessMark.hpp>

#include "platform/opc/src/zip/ByteSource.hpp"
#include "platform/opc/src/zip/Deflate.hpp"
#include "platform/opc/src/zip/NameIndex.hpp"
#include "platform/opc/src/zip/NewArchive.hpp"

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

// The new content of a zip file: items of an earlier archive, the base, that are kept as they are,
// and items that are set. Small items stay in memory, encoded, until the save; a large one is
// encoded once, straight into the new file, while it is written. save() takes the kept items over
// in as few ranges as possible and puts the new file in the place of the old one.
//
// Nothing that another program can see changes before save(), and destroying a writer leaves
// nothing behind. Failures are opc::Exception. After save(), and in a process that was forked
// since the writer was made, set(), remove(), read(), save() and the streams of set() throw. For
// one thread at a time, and that includes the streams.
class ZipWriter {
public:
    // Prepares to write `target`, which need not exist. `base` may be null; otherwise it is the
    // archive that was opened from `target`, and its items are kept unless they are set or removed.
    // Without `allowZip64`, an item or archive that needs the zip64 extensions is refused.
    ZipWriter(const fl::filesystem::path& target, std::shared_ptr<const ZipArchive> base,
              bool allowZip64);
    ZipWriter(const ZipWriter&) = delete;
    ZipWriter& operator=(const ZipWriter&) = delete;
    ~ZipWriter() = default;

    // Whether the new file will hold an item of this name, and whether that item was set in this
    // writer. Names are compared exactly.
    bool has(std::string_view name) const { return isSet(name) || findKept(name) != nullptr; }
    bool isSet(std::string_view name) const { return findSet(name) != nullptr; }

    // Returns a stream for the whole content of a new or replaced item. flush() sets the item and
    // ends the stream; a stream that is destroyed before that leaves the item as it was. Several
    // streams may be open at once. They must not outlive the writer. Throws ItemError for a name
    // that no zip file can hold, or that some reader would take for the name of another item: they
    // differ only in case or in the kind of slash or, if the other item is the base's, in dot
    // segments or percent-encodings.
    std::unique_ptr<OutputStream> set(std::string_view name, const ItemOptions& options);
    // Removes the item of exactly this name, if there is one.
    void remove(std::string_view name);
    // The current content of the item of exactly this name, as it was set here or is in the base.
    // The stream does not need the writer, but must not be read after the item is set again or
    // removed. Throws ItemError if there is no such item.
    std::unique_ptr<InputStream> read(std::string_view name) const;

    // Throws while a foundation::SaveWatch is told of this writer's progress. All that changes or
    // saves calls it.
    void refuseInReport() const;

    // Whether there was a file to be replaced when the writer was made.
    bool replacesFile() const noexcept { return target_.stamp().has_value(); }
    // Whether save() has something to write. A new file is always written, even if it is empty.
    bool changed() const noexcept { return !base_ || !items_.empty() || hasLostKept_; }
    // Writes the new file and returns its stamp, or returns nullopt if nothing has changed. If it
    // throws, the old file is as it was, or the new one is complete in its place. Either way the
    // writer is spent: every later call throws. Items whose streams are still open are not set.
    std::optional<fl::filesystem::FileStamp> save();

private:
    friend class ItemOutput;  // the streams of set()

    // Starts writing this item at the end of the new file, for a stream whose item has become too
    // large for memory. Returns false if another item is being written there.
    bool claimEnd(const NewItem& item);
    fl::filesystem::FileDescriptor createScratchFile() const;
    void complete(NewItem item);
    void checkOpen() const;
    void checkChangeable() const;

    // What has become of an item of the base: it is still to be taken over, has been taken over
    // into the new file, or was replaced or removed.
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
    foundation::ProcessMark process_;
    bool isSpent_ = false;
    bool isReporting_ = false;  // set by the new file
    DeflaterPool deflaters_;

    std::vector<Fate> fates_;   // of the base's items, in their order
    bool hasLostKept_ = false;  // an item of the base was replaced or removed
    // The items that were set. The archive refers to them, so they must not move.
    std::map<std::string, std::unique_ptr<NewItem>, FoldedLess> items_;
    std::uint64_t nextTurn_ = 0;
    std::uint64_t inMemory_ = 0;            // bytes of items_ that are in memory
    std::shared_ptr<FileSource> overflow_;  // scratch file for small items, once they were too many
    std::uint64_t overflowSize_ = 0;
    std::unique_ptr<NewArchive> archive_;  // null until the first item is written to the disk
};

}  // namespace opc::zip
