#pragma once

#include "platform/opc/src/zip/ByteSource.hpp"
#include "platform/opc/src/zip/ItemInput.hpp"
#include "platform/opc/src/zip/NewFile.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <fl/FileDescriptor.hpp>
#include <fl/ReplacementFile.hpp>
#include <fl/filesystem.hpp>
#include <foundation/ProcessMark.hpp>
#include <opc/ZipArchive.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace opc::zip {

// An item that was set since the archive was opened. Its data is in memory or in an unnamed scratch
// file, or already at its place in the new file.
struct NewItem {
    using InMemory = std::shared_ptr<const MemorySource>;
    struct InScratchFile {
        std::shared_ptr<const FileSource> file;
        std::uint64_t offset;
    };
    struct InNewFile {
        std::shared_ptr<const ByteSource> file;
        std::uint64_t dataOffset;
    };

    std::string name;
    std::uint16_t flags = 0;
    std::uint32_t dosDateAndTime = 0;
    Method method = Method::Stored;
    std::uint32_t crc32 = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
    std::string directoryFields;  // as in format::ItemRecord
    // The order in which names were first set, which is the order in the file of items that waited.
    std::uint64_t turn = 0;
    std::variant<InMemory, InScratchFile, InNewFile> content;

    // What the zip records say of the item when its local header is at `offset`.
    format::ItemRecord recordAt(std::uint64_t offset) const;
    // What openItem() needs for reading the item back; `file` is for messages.
    ItemContent contentIn(const fl::filesystem::path& file) const;
};

// The zip file that a save makes. It knows which items are where in it: items of the base, which
// are the archive that is replaced, and new items. Items are appended in any order and may be
// dropped again. finish() comes last and only once. Bytes in front of the base's first item, such
// as a program that unpacks the file, are taken over to the front. Destroying it before finish()
// leaves nothing behind. Failures are opc::Exception. Called by ZipWriter and its streams, from one
// thread at a time.
class NewArchive {
public:
    // `target`, `name` (for messages) and `isReporting` (see NewFile) must outlive it; `base` may
    // be null.
    NewArchive(const fl::filesystem::SaveTarget& target, const fl::filesystem::path& name,
               std::shared_ptr<const ZipArchive> base, bool& isReporting);

    // Takes over items of the base, which must be in the order of their data. Items that directly
    // follow each other are taken over as one range.
    void appendKept(const std::vector<const ZipItem*>& items);
    // Writes an item that is in memory or in a scratch file. `item.content` then is its place here.
    void append(NewItem& item);

    // The next three write an item whose size is not known yet at the archive's end: startItem(),
    // then the encoded content through file(), then either endItem() or cancelItem(). Only one item
    // at a time can be written so, and nothing else may be appended meanwhile.
    void startItem(const NewItem& item);
    // Writes the local header. `item` has its final numbers, and `item.content` becomes its place
    // here.
    void endItem(NewItem& item);
    // Takes back what was written of the item. Does nothing if no item is being written, or in a
    // process that was forked since: the file is its parent's.
    void cancelItem() noexcept;
    bool isWriting() const noexcept { return isWriting_; }
    NewFile& file() noexcept { return *file_; }

    // Takes an item out of the archive again. Its bytes are cut off if they are the last, and
    // remain as a gap otherwise, which finish() closes. An item that is not here is ignored.
    void drop(const ZipItem& item) noexcept;
    void drop(const NewItem& item) noexcept;

    // Closes the gaps, writes the directory and the end records, makes sure that the archive can be
    // opened again (a new item whose stored data some reader would take for records of this archive
    // is deflated for this), and puts the file in the place of the target. Returns the stamp of the
    // new file. Throws if zip64 is needed and not allowed.
    fl::filesystem::FileStamp finish(bool allowZip64);

private:
    // Either `kept` or `fresh` is null.
    struct Placed {
        std::uint64_t end;
        const ZipItem* kept;
        NewItem* fresh;
    };

    using PlacedItems = std::map<std::uint64_t, Placed>;  // by the offsets where they begin

    std::uint64_t frontSize() const noexcept;
    void appendFront();
    void dropPlaced(PlacedItems::const_iterator dropped) noexcept;
    void cutAt(std::uint64_t offset) noexcept;
    void placeFresh(NewItem& item, std::uint64_t begin, std::size_t headerSize);
    bool hasGaps() const;
    void closeGaps();
    std::string directory(bool allowZip64) const;
    void refuseZip64(bool isNeeded, bool allowZip64) const;
    format::DirectoryRecord writeEnd(bool allowZip64);
    NewItem* findMistakable(const format::DirectoryRecord& record) const;
    const Placed* itemAt(std::uint64_t offset) const;
    void deflateAgain(NewItem& item);

    const fl::filesystem::SaveTarget* target_;
    const fl::filesystem::path* name_;
    std::shared_ptr<const ZipArchive> base_;
    bool* isReporting_;
    std::shared_ptr<NewFile> file_;
    PlacedItems placed_;
    foundation::ProcessMark process_;
    bool isWriting_ = false;         // between startItem() and endItem() or cancelItem()
    std::uint64_t writingFrom_ = 0;  // where that item begins
    std::size_t writingHeader_ = 0;  // the size of its local header
};

}  // namespace opc::zip
