#include "platform/opc/src/zip/Directory.hpp"

#include <fl/i18n.hpp>

#include <cstddef>
#include <iterator>
#include <string_view>

#include "platform/opc/src/zip/CompressionMethods.hpp"
#include "platform/opc/src/zip/ItemChecks.hpp"
#include "platform/opc/src/zip/StrayRecords.hpp"
#include "platform/opc/src/zip/ZipError.hpp"

namespace opc::zip {

namespace {

using namespace format;

bool isUtf8(std::string_view text) {
    try {
        fl::i18n::utf8_to_ustring_strict(text);
        return true;
    } catch (const fl::i18n::ConversionError&) {
        return false;
    }
}

class DirectoryReader {
public:
    DirectoryReader(const std::string& directory, const fl::filesystem::path& file)
        : directory_(asBytes(directory)), file_(&file) {}

    std::vector<ZipItem> read(std::uint64_t count) {
        std::vector<ZipItem> items;
        items.reserve(count);
        for (std::uint64_t i = 0; i < count; ++i)
            items.push_back(next());
        if (at_ != directory_.size()) {
            fail("the directory has " + std::to_string(directory_.size() - at_) +
                 " bytes after its last item, the " + std::to_string(count) +
                 "th: the end record does not count all items");
        }
        return items;
    }

private:
    [[noreturn]] void fail(const std::string& what) const {
        refuseZip(ZipRule::Directory, *file_, what + kGetAgain);
    }

    Bytes nextRecord() {
        const Bytes rest = directory_.subspan(at_);
        if (rest.size() < central::kHeaderSize || load32(rest, 0) != central::kSignature) {
            fail("there is no item record at byte " + std::to_string(at_) + " of the directory");
        }
        const std::size_t size = central::kHeaderSize + load16(rest, central::kNameLength) +
                                 load16(rest, central::kExtraLength) +
                                 load16(rest, central::kCommentLength);
        if (size > rest.size()) {
            fail("the record at byte " + std::to_string(at_) +
                 " of the directory is longer than the directory");
        }
        at_ += size;
        return rest.first(size);
    }

    ZipItem next() {
        const Bytes record = nextRecord();
        const std::uint16_t flags = load16(record, central::kFlags);
        ZipItem item;
        item.directoryRecord = asText(record);
        item.name =
            asText(record.subspan(central::kHeaderSize, load16(record, central::kNameLength)));
        item.nameIsUtf8 = (flags & flag::kUtf8) != 0;
        item.method = Method{load16(record, central::kMethod)};
        item.crc32 = load32(record, central::kCrc);
        const ItemChecks checks(*file_, item);
        checks.refuseEncryption(flags);
        readWideFields(item, record, checks);
        checkName(item, checks);
        checkKind(item, record, checks);
        checkContent(item, checks);
        return item;
    }

    // Reads the sizes and the offset, each from the zip64 field if the record's own field refers to
    // it. Without a zip64 field, the placeholder counts as the number itself: a writer that does
    // not know zip64 may mean it.
    static void readWideFields(ZipItem& item, Bytes record, const ItemChecks& checks) {
        const std::size_t fieldsAt = central::kHeaderSize + item.name.size();
        const Bytes wholeField = checks.checkExtraFields(
            record.subspan(fieldsAt, load16(record, central::kExtraLength)));
        Bytes zip64 = wholeField;
        const bool hasZip64 = zip64.data() != nullptr;
        const auto read = [&](std::size_t field) -> std::uint64_t {
            const std::uint32_t narrow = load32(record, field);
            if (narrow != kInZip64_32 || !hasZip64) return narrow;
            if (zip64.size() < sizeof(std::uint64_t))
                checks.failDamaged("has a zip64 field that is too short");
            const std::uint64_t wide = load64(zip64, 0);
            zip64 = zip64.subspan(sizeof wide);
            return wide;
        };
        item.size = read(central::kSize);
        item.compressedSize = read(central::kCompressedSize);
        item.headerOffset = read(central::kOffset);
        checkDisk(load16(record, central::kDisk), zip64, checks);
        if (zip64.size() >= sizeof(std::uint64_t)) checkIdleNumbers(wholeField, item, checks);
    }

    // Some writers put all three numbers into the zip64 field, also those that nothing refers to,
    // and some readers expect each at its fixed place. Both ways of reading must give the same
    // numbers.
    static void checkIdleNumbers(Bytes wholeField, const ZipItem& item, const ItemChecks& checks) {
        const std::uint64_t known[] = {item.size, item.compressedSize, item.headerOffset};
        for (std::size_t i = 0; i < std::size(known); ++i) {
            if (wholeField.size() < (i + 1) * sizeof known[i]) return;
            if (load64(wholeField, i * sizeof known[i]) == known[i]) continue;
            checks.failDamaged("has a zip64 field that contradicts the rest of its record");
        }
    }

    static void checkDisk(std::uint16_t disk, Bytes zip64, const ItemChecks& checks) {
        const bool isWide = disk == kInZip64_16 && zip64.size() >= sizeof(std::uint32_t);
        if (disk == 0 || (isWide && load32(zip64, 0) == 0)) return;
        checks.failUnsupported(
            "is on another disk of a multi-disk zip archive, which is not supported; join the "
            "disks first");
    }

    // Refuses an item of which some readers make a link or a directory and others a file. The
    // record also says for which system its attributes are; that is ignored here because some
    // readers ignore it.
    static void checkKind(const ZipItem& item, Bytes record, const ItemChecks& checks) {
        const std::uint32_t all = load32(record, central::kAttributes);
        const std::uint32_t mode = all >> attributes::kModeShift;
        const std::uint32_t type = mode & attributes::kTypeOfMode;
        const bool isAmigaDirectory =
            std::to_integer<unsigned>(record[central::kSystemMadeBy]) == attributes::kAmiga &&
            (mode & attributes::kTypeOfAmigaMode) == attributes::kAmigaDirectory;
        const bool isMarked =
            type == attributes::kDirectory || isAmigaDirectory || (all & attributes::kDosDirectory);
        if (all & attributes::kDosVolumeLabel) {
            checks.failUnsupported(
                "is marked as the label of a disk, and some readers leave it out; pack it as a "
                "file");
        }
        // A writer that reads its input from a pipe may mark the item as a FIFO. It is a file to
        // every reader.
        if (type != 0 && type != attributes::kRegular && type != attributes::kFifo &&
            type != attributes::kDirectory) {
            checks.failUnsupported(
                "is marked as a symbolic link or a device, and some readers would create one; pack "
                "what it stands for as a file");
        }
        // Some writers under Windows end a directory's name in a backslash.
        if (isMarked && !item.name.ends_with('/') && !item.name.ends_with('\\')) {
            checks.failDamaged(
                "is marked as a directory, but its name does not end in a slash: some readers "
                "see a directory and others a file");
        }
        if (item.name.ends_with('/') || item.name.ends_with('\\')) {
            if (item.size == 0) return;
            checks.failUnsupported(
                "has the name of a directory, but holds content, which some readers leave out; "
                "rename it");
        }
    }

    static void checkName(const ZipItem& item, const ItemChecks& checks) {
        if (item.name.empty()) {
            checks.failUnsupported("has no name, and some readers leave it out; give it one");
        }
        if (item.name.find('\0') != std::string::npos) {
            checks.failUnsupported(
                "has a name with a zero byte, at which some readers end the name; rename it");
        }
        if (item.nameIsUtf8 && !isUtf8(item.name)) {
            checks.failUnsupported(
                "has a name that is marked as UTF-8 but is not, and which each reader replaces by "
                "another; rename it");
        }
    }

    static void checkContent(const ZipItem& item, const ItemChecks& checks) {
        const MethodRow* const method = findMethod(item.method);
        if (method == nullptr) checks.failUnsupported(methodFault(item.method) + "; pack it again");
        if (item.method == Method::Stored && item.size != item.compressedSize) {
            checks.failDamaged("is stored, but declares " + std::to_string(item.size) +
                               " bytes of content and " + std::to_string(item.compressedSize) +
                               " bytes of data, which must be equal");
        }
        if (item.size / method->worstRatio > item.compressedSize) {
            checks.failDamaged("declares " + std::to_string(item.size) + " bytes, more than its " +
                               std::to_string(item.compressedSize) + " " + method->name +
                               " bytes can hold");
        }
    }

    Bytes directory_;
    std::size_t at_ = 0;
    const fl::filesystem::path* file_;
};

}  // namespace

std::vector<ZipItem> readDirectory(const std::string& directory, std::uint64_t count,
                                   const fl::filesystem::path& file) {
    return DirectoryReader(directory, file).read(count);
}

std::vector<ZipItem> readItems(const std::string& directory, const DirectoryRecord& record,
                               ArchiveBytes& bytes, const fl::filesystem::path& file) {
    auto items = readDirectory(directory, record.count, file);
    StrayRecords(bytes, file).refuse(directory, record.offset, "the directory");
    checkLocalHeaders(items, record.offset, bytes, file);
    return items;
}

}  // namespace opc::zip
