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

// The compression methods that packages allow, with their numbers in the zip format.
enum class Method : std::uint16_t { Stored = 0, Deflated = 8 };

// One item of a zip file, as the directory describes it and its local header confirms it. Content
// is what a reader gets, and data is its compressed form in the file; both sizes are in bytes.
struct PLATFORM_API ZipItem {
    std::string name;         // the bytes in the file, without a zero byte
    bool nameIsUtf8 = false;  // otherwise the name is in code page 437
    Method method = Method::Stored;
    std::uint32_t crc32 = 0;           // checksum of the content
    std::uint64_t compressedSize = 0;  // of the data
    std::uint64_t size = 0;            // of the content
    // Offsets in the file: where the local header starts, where the data starts, and where the item
    // ends, with its data descriptor if it has one.
    std::uint64_t headerOffset = 0;
    std::uint64_t dataOffset = 0;
    std::uint64_t endOffset = 0;
    // Whether a data descriptor with the sizes follows the data. A reader that starts at the front
    // of the file then learns the sizes only after the data.
    bool hasDescriptor = false;
    // The other name of a salvaged item to which directory and local header give two, otherwise empty.
    std::string otherName = {};
    // The bytes of the item's directory record, for copying the item into another file. Valid as
    // long as the archive, and empty for a salvaged item.
    std::string_view directoryRecord;

    bool isDirectory() const noexcept { return !name.empty() && name.back() == '/'; }
    // The name for people and messages, as UTF-8.
    std::string displayName() const;
};

// The CRC-32 that zip files hold of each item. `sofar` is the checksum of the bytes in front of
// `bytes`, and 0 if there are none.
PLATFORM_API std::uint32_t crc32(std::uint32_t sofar, std::span<const std::byte> bytes);

// Whether the file holds, wherever, the signature of an item or of a directory's record or end, as
// every zip file does, with whatever bytes in front of it or missing. No text holds one, because of
// its control characters; other data may by chance. Reads the file up to three times. A failure to
// read is a std::system_error.
PLATFORM_API bool holdsZipSignature(const fl::filesystem::FileDescriptor& file);

// An item of a damaged zip file that cannot be recovered.
struct PLATFORM_API LostItem {
    std::string name;    // its displayName()
    std::string reason;  // "the file ends before its data does"
};

// The rule that a zip file breaks which open() refuses.
enum class ZipRule {
    End,          // the end record is missing or does not fit the file, which was cut or changed
    Directory,    // the directory is not a list of items
    Item,         // an item is not as the directory says, or overlaps another
    Hidden,       // there is an item, or a gap between items, that the directory does not list
    Names,        // two items have names that a reader could take for one
    Unsupported,  // the file is intact, but of a kind that packages do not allow
};
// Thrown by ZipArchive::open(). The message names the file and the item at fault.
class PLATFORM_API ZipRefusal : public Exception {
public:
    ZipRefusal(ZipRule rule, const std::string& message);
    ~ZipRefusal() override;
    ZipRule rule() const noexcept { return rule_; }

private:
    ZipRule rule_;
};

// Offsets of an archive's parts in its file. Both are 0 for a salvaged archive.
struct PLATFORM_API ArchiveBounds {
    std::uint64_t directory = 0;  // where the directory starts
    std::uint64_t fileEnd = 0;  // where the archive's comment ends; what follows belongs to nothing
};

// A zip file that is open for reading. Opening reads the end record, the directory and every local
// header once, in linear time. It refuses with ZipRefusal whatever two readers could understand
// differently: counts and sizes that do not fit exactly, items that overlap, local headers that
// contradict the directory, a second end record, names that some reader takes for one, encryption,
// several disks, names with a zero byte, methods other than stored and deflated, items that some
// readers make links, and items hidden between others or in the data of small ones. Content is read
// only of small items whose data could hide another one.
//
// An archive is always held by a shared pointer. It keeps the file open, never changes, and may be
// used from several threads at a time. What it returns by reference or pointer lives as long as the
// archive.
class PLATFORM_API ZipArchive {
public:
    // Throws model::PackageNotFound if there is no such file, ZipRefusal if the file breaks a rule,
    // and opc::Exception if it is not a regular file or cannot be read.
    static std::shared_ptr<const ZipArchive> open(const fl::filesystem::path& file);
    // Opens what is left of a file that open() refuses, or whose items are damaged: the items whose
    // content is whole. They are found through the directory, its single records or the local
    // headers, and each is read to its end. If a program took the file for a text and made CR LF of
    // each LF in it, that is undone if more items are whole then. Sets `lost` to what cannot be
    // recovered. Of two items that some reader takes for one, or for an item and its folder, the
    // one whose name is `expected` is kept. A file without any items gives an empty archive. Throws
    // as open() does, except ZipRefusal. Takes linear time, and memory linear in the file.
    static std::shared_ptr<const ZipArchive> salvage(const fl::filesystem::path& file,
                                                     std::vector<LostItem>& lost,
                                                     std::span<const std::string> expected = {});
    ~ZipArchive();

    // All items in the order of their data in the file.
    const std::vector<ZipItem>& items() const noexcept;
    // All items in the order of their names. Neither case nor the kind of slash counts in this
    // order, and a slash comes before every other byte, so what is in a folder directly follows the
    // folder.
    const std::vector<const ZipItem*>& itemsByName() const noexcept;
    // The item of exactly this name, or null.
    const ZipItem* find(std::string_view name) const noexcept;
    // The item that some reader might find by this name, or null: case, the kind of slash, dot
    // segments and percent-encodings do not count.
    const ZipItem* findSimilar(std::string_view name) const;
    // Opens the content of one of this archive's items. The stream keeps the file open and does not
    // need the archive. Reading throws opc::Exception, before the last byte, if the content is
    // damaged.
    std::unique_ptr<InputStream> read(const ZipItem& item) const;
    // Reads the content of one of this archive's items to its end and throws opc::Exception if it
    // is damaged. Returns false if the item has a table of slices (docs/format-kvpkg.md) that does
    // not fit its data, so that only one thread can read it.
    bool verify(const ZipItem& item) const;

    // Whether the items of a salvaged archive were found in the file as it was before its line ends
    // were converted. Their offsets are those in that file.
    bool isConverted() const noexcept;
    // The archive's comment as it is in the file; empty for a salvaged archive.
    const std::string& comment() const noexcept;
    const ArchiveBounds& bounds() const noexcept;
    const fl::filesystem::path& path() const noexcept;
    const fl::filesystem::FileDescriptor& file() const noexcept;
    // Identity, size and time of the file when it was opened.
    const fl::filesystem::FileStamp& stamp() const noexcept;

private:
    struct State;
    explicit ZipArchive(std::shared_ptr<const State> state);
    std::shared_ptr<const State> state_;
};

}  // namespace opc::zip
