#pragma once

#include "platform/opc/src/zip/ItemInput.hpp"
#include "platform/opc/src/zip/NewFile.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <opc/ZipArchive.hpp>

#include <sys/types.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace opc::zip {

class MemorySource final : public ByteSource {
public:
    explicit MemorySource(std::vector<std::byte> bytes) : bytes_(std::move(bytes)) {}
    std::span<const std::byte> bytes() const noexcept { return bytes_; }
    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const override;

private:
    std::vector<std::byte> bytes_;
};

class FileSource final : public ByteSource {
public:
    explicit FileSource(fl::filesystem::FileDescriptor file) : file_(std::move(file)) {}
    const fl::filesystem::FileDescriptor& file() const noexcept { return file_; }
    void write(std::span<const std::byte> bytes, std::uint64_t offset) {
        file_.writeAt(bytes, offset);
    }
    std::size_t readAt(std::span<std::byte> buffer, std::uint64_t offset) const override;

private:
    fl::filesystem::FileDescriptor file_;
};

// An item that was set in this session. Its encoded content waits in memory or in a file without a
// name, or stands in its place in the new file already.
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
    std::uint64_t turn = 0;  // when an item of this name was first set
    std::variant<InMemory, InScratchFile, InNewFile> content;

    format::ItemRecord recordAt(std::uint64_t offset) const;
    // For reading it back; `file` is for messages.
    ItemContent contentIn(const fl::filesystem::path& file) const;
};

// The zip file that a save makes: which items stand where in it. Items are appended, and may be
// dropped again before it is finished. Bytes in front of the base's first item come first here, too.
// Failures are opc::Exception.
class NewArchive {
public:
    // `target` and `name` (for messages) must outlive it; `base` may be null.
    NewArchive(const fl::filesystem::SaveTarget& target, const fl::filesystem::path& name,
               std::shared_ptr<const ZipArchive> base);

    // Takes over items of the base, in one range where they follow each other there too.
    void appendKept(const std::vector<const ZipItem*>& items);
    // Writes an item that waits in memory or a scratch file, which then stands here.
    void append(NewItem& item);
    // Lets one item at a time be written at the end piece by piece: startItem(), then the encoded
    // content through file(), then either endItem() or cancelItem().
    void startItem(const NewItem& item);
    void endItem(NewItem& item);
    // A process that was forked meanwhile takes nothing back: the file is its parent's.
    void cancelItem() noexcept;
    bool isWriting() const noexcept { return isWriting_; }
    NewFile& file() noexcept { return *file_; }

    void drop(const ZipItem& item) noexcept;
    void drop(const NewItem& item) noexcept;

    // Closes the gaps that dropped items left, writes the directory and puts the file in place.
    // Returns its stamp.
    fl::filesystem::FileStamp finish(bool allowZip64);

private:
    struct Placed {
        std::uint64_t end;
        const ZipItem* kept;  // one of these two
        NewItem* fresh;
    };

    using PlacedItems = std::map<std::uint64_t, Placed>;  // by where they begin

    std::uint64_t frontSize() const noexcept;
    void appendFront();
    void dropPlaced(PlacedItems::const_iterator dropped) noexcept;
    void cutAt(std::uint64_t offset) noexcept;
    void placeFresh(NewItem& item, std::uint64_t begin, std::size_t headerSize);
    bool hasGaps() const;
    void closeGaps();
    std::string directory(bool allowZip64) const;
    void refuseZip64(bool isNeeded, bool allowZip64) const;
    void requireOpening(const std::string& directory) const;

    const fl::filesystem::SaveTarget* target_;
    const fl::filesystem::path* name_;
    std::shared_ptr<const ZipArchive> base_;
    std::shared_ptr<NewFile> file_;
    PlacedItems placed_;
    pid_t process_ = ::getpid();
    bool isWriting_ = false;
    std::uint64_t writingFrom_ = 0;
    std::size_t writingHeader_ = 0;
};

}  // namespace opc::zip
