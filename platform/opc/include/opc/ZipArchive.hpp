#pragma once

#include <foundation/Export.hpp>
#include <opc/Exception.hpp>
#include <opc/Streams.hpp>

#include <fl/FileDescriptor.hpp>
#include <fl/filesystem.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace opc::zip {

enum class Method : std::uint16_t { Stored = 0, Deflated = 8 };

// One item of a zip file, as the directory describes it and its local header confirms it.
struct PLATFORM_API ZipItem {
    std::string name;  // the bytes in the file
    bool nameIsUtf8 = false;
    Method method = Method::Stored;
    std::uint32_t crc32 = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
    // Where the item's local header starts, its data starts, and its last byte (a data descriptor
    // included) is passed.
    std::uint64_t headerOffset = 0;
    std::uint64_t dataOffset = 0;
    std::uint64_t endOffset = 0;
    // Whether a reader that starts at the front of the file learns the size behind the data only.
    bool hasDescriptor = false;
    // What the local header calls a salvaged item, where that is another name. Empty otherwise.
    std::string localName = {};
    // The item's directory record as it stands, for taking the item over into another file. Lives
    // as long as the archive.
    std::string_view directoryRecord;

    bool isDirectory() const noexcept { return !name.empty() && name.back() == '/'; }
    // For people: the name as UTF-8, from code page 437 where it is not.
    std::string displayName() const;
};

// The checksum that zip files hold of each item, of bytes behind those that `sofar` is of; 0 at first.
PLATFORM_API std::uint32_t crc32(std::uint32_t sofar, std::span<const std::byte> bytes);

// Something that a damaged zip file held, by its displayName(), and why it cannot be had.
struct PLATFORM_API LostItem {
    std::string name;
    std::string reason;
};

// What a zip file that open() refuses is like.
enum class ZipRule {
    End,          // its end record is missing or does not fit the file: it is cut or was changed
    Directory,    // the directory is no list of items
    Item,         // an item is not as the directory says, or overlaps another
    Hidden,       // an item is there that the directory does not list
    Names,        // two items have names that a reader takes for one
    Unsupported,  // it is whole, but of a kind that packages do not allow
};
class PLATFORM_API ZipRefusal : public Exception {
public:
    ZipRefusal(ZipRule rule, const std::string& message);
    ~ZipRefusal() override;
    ZipRule rule() const noexcept { return rule_; }

private:
    ZipRule rule_;
};

// Where the directory starts, and where the end record with its comment ends: what stands behind that
// belongs to nothing. Both are 0 where the file does not say, as salvage() finds it.
struct PLATFORM_API ArchiveBounds {
    std::uint64_t directory = 0;
    std::uint64_t fileEnd = 0;
};

// A zip file open for reading. Opening reads the end record, the directory and every local header
// once, in linear time, and refuses with ZipRefusal whatever two readers could understand
// differently: counts and sizes that do not fit exactly, items that overlap, local headers that
// contradict the directory, a second end record, names that are equal ignoring case, encryption,
// several disks, names that hold a zero byte, methods other than stored and deflated, items that are
// links to some, and items within the data of small others. Safe to read from several threads.
class PLATFORM_API ZipArchive {
public:
    // Throws model::PackageNotFound when there is no such file, opc::Exception when it is no regular
    // file, cannot be read or breaks a rule.
    static std::shared_ptr<const ZipArchive> open(const fl::filesystem::path& file);
    // What is left of a file that open() refuses, or whose items are damaged: the items whose content
    // is whole, found through the directory, its single records or their local headers, each read to
    // its end. Adds the others to `lost`. The items have no directory record. Throws as open() does
    // for a file that cannot be read; one that holds nothing gives an empty archive.
    static std::shared_ptr<const ZipArchive> salvage(const fl::filesystem::path& file,
                                                     std::vector<LostItem>& lost);
    ~ZipArchive();

    // In the order of their data in the file.
    const std::vector<ZipItem>& items() const noexcept;
    // The same in the order of their names, in which neither case nor the kind of slash counts and a
    // slash comes before every other byte.
    const std::vector<const ZipItem*>& itemsByName() const noexcept;
    // The item of exactly this name, or null.
    const ZipItem* find(std::string_view name) const noexcept;
    // The item whose name some reader might take for this one, or null: case, the kind of slash, dot
    // segments and percent-encodings do not count.
    const ZipItem* findSimilar(std::string_view name) const;
    // The content of one of this archive's items; stays valid as long as the stream lives.
    std::unique_ptr<InputStream> read(const ZipItem& item) const;

    const std::string& comment() const noexcept;
    const ArchiveBounds& bounds() const noexcept;
    const fl::filesystem::path& path() const noexcept;
    const fl::filesystem::FileDescriptor& file() const noexcept;
    // The file as it was when it was opened.
    const fl::filesystem::FileStamp& stamp() const noexcept;

private:
    struct State;
    explicit ZipArchive(std::shared_ptr<const State> state);
    std::shared_ptr<const State> state_;
};

}  // namespace opc::zip
