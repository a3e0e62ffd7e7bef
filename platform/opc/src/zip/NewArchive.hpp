#pragma once

#include "platform/opc/src/zip/NewFile.hpp"
#include "platform/opc/src/zip/NewItem.hpp"

#include <opc/ZipArchive.hpp>

#include <map>
#include <vector>

namespace opc::zip {

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
    bool isWriting_ = false;
    std::uint64_t writingFrom_ = 0;
    std::size_t writingHeader_ = 0;
};

}  // namespace opc::zip
