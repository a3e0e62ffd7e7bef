#include "platform/opc/src/zip/Directory.hpp"

#include <fl/filesystem.hpp>
#include <foundation/Shown.hpp>
#include <opc/ZipArchive.hpp>

#include "platform/opc/src/Ascii.hpp"
#include "platform/opc/src/zip/ArchiveBytes.hpp"
#include "platform/opc/src/zip/HiddenItems.hpp"
#include "platform/opc/src/zip/ItemChecks.hpp"
#include "platform/opc/src/zip/StrayRecords.hpp"
#include "platform/opc/src/zip/ZipError.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace opc::zip {

namespace {

using namespace format;

// Checks the local header of one item and the descriptor after its data, and sets the item's fields
// that depend on them. `limit` is where the next item or the directory starts.
class LocalHeaderCheck {
public:
    LocalHeaderCheck(ZipItem& item, std::uint64_t limit, ArchiveBytes& bytes, StrayRecords& strays,
                     const fl::filesystem::path& file)
        : item_(&item), limit_(limit), bytes_(&bytes), strays_(&strays), checks_(file, item) {}

    void run() {
        const Bytes header = readHeader();
        const std::uint16_t flags = load16(header, local::kFlags);
        checkNameAndMethod(header, flags);
        checkSizes(header, (flags & flag::kDescriptor) != 0);
        strays_->refuse(asText(header.subspan(local::kHeaderSize)),
                        item_->headerOffset + local::kHeaderSize, "a local header");
        item_->dataOffset = item_->headerOffset + header.size();
        if (item_->compressedSize > limit_ - item_->dataOffset) failOverlap();
        item_->endOffset = item_->dataOffset + item_->compressedSize;
        item_->hasDescriptor = (flags & flag::kDescriptor) != 0;
        if (item_->hasDescriptor) item_->endOffset += findDescriptor();
    }

private:
    [[noreturn]] void failOverlap() const {
        checks_.failDamaged("reaches from offset " + std::to_string(item_->headerOffset) +
                            " past offset " + std::to_string(limit_) +
                            ", where the next item or the directory starts");
    }
    [[noreturn]] void failContradiction(const char* what) const {
        checks_.failDamaged("its local header at offset " + std::to_string(item_->headerOffset) +
                            " contradicts the directory: a different " + what);
    }

    Bytes readHeader() {
        const std::uint64_t room = limit_ - item_->headerOffset;
        if (room < local::kHeaderSize) failOverlap();
        Bytes header = bytes_->at(item_->headerOffset, local::kHeaderSize, limit_);
        if (load32(header, 0) != local::kSignature) {
            checks_.failDamaged("there is no local header at offset " +
                                std::to_string(item_->headerOffset) +
                                ", where the directory says it is");
        }
        const std::size_t size = local::kHeaderSize + load16(header, local::kNameLength) +
                                 load16(header, local::kExtraLength);
        if (size > room) failOverlap();
        return bytes_->at(item_->headerOffset, size, limit_);
    }

    void checkNameAndMethod(Bytes header, std::uint16_t flags) const {
        const std::string_view name =
            asText(header.subspan(local::kHeaderSize, load16(header, local::kNameLength)));
        if (name != item_->name) {
            failContradiction(
                ("name, \"" + foundation::shown(displayName(name, item_->nameIsUtf8)) + "\"")
                    .c_str());
        }
        checks_.refuseEncryption(flags);
        if (Method{load16(header, local::kMethod)} != item_->method) failContradiction("method");
        // The flag makes no difference to a name in ASCII.
        if (((flags & flag::kUtf8) != 0) != item_->nameIsUtf8 && !ascii::isAscii(name)) {
            failContradiction("encoding of the name");
        }
    }

    // If a descriptor follows the data, checksum and sizes may be 0 here. Any other number must be
    // right, because some readers use it.
    void checkSizes(Bytes header, bool hasDescriptor) const {
        const auto agrees = [&](std::uint64_t here, std::uint64_t there) {
            return here == there || (hasDescriptor && here == 0);
        };
        const auto [size, compressedSize] = readSizes(header, hasDescriptor);
        if (!agrees(load32(header, local::kCrc), item_->crc32)) failContradiction("checksum");
        if (!agrees(size, item_->size)) failContradiction("size");
        if (!agrees(compressedSize, item_->compressedSize)) failContradiction("compressed size");
        // Writers of deflated data that know the content's size may give that only. Of stored data,
        // some streaming readers take the one size and some the other.
        if (item_->method == Method::Stored && size != compressedSize) failContradiction("size");
    }

    // Returns the size and the compressed size, in the order of the local zip64 field, which holds
    // both.
    std::array<std::uint64_t, 2> readSizes(Bytes header, bool hasDescriptor) const {
        std::array<std::uint64_t, 2> sizes{load32(header, local::kSize),
                                           load32(header, local::kCompressedSize)};
        const std::size_t nameEnd = local::kHeaderSize + item_->name.size();
        const Bytes zip64 = checks_.checkExtraFields(header.subspan(nameEnd));
        if (zip64.empty()) return sizes;
        if (zip64.size() < 2 * sizeof(std::uint64_t)) {
            checks_.failDamaged("has a zip64 field in its local header that is too short");
        }
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            const std::uint64_t wide = load64(zip64, i * sizeof(std::uint64_t));
            // A number to which the header's own field does not refer must be equal to that field,
            // or be 0 if a descriptor follows.
            const bool isIdle = sizes[i] != kInZip64_32 && hasDescriptor && wide == 0;
            if (!isIdle && sizes[i] != kInZip64_32 && sizes[i] != wide) failContradiction("size");
            if (!isIdle) sizes[i] = wide;
        }
        return sizes;
    }

    // Returns the size of the descriptor after the item's data.
    std::size_t findDescriptor() const {
        const std::size_t room =
            std::min<std::uint64_t>(limit_ - item_->endOffset, descriptor::kLargest);
        const std::size_t size =
            descriptor::sizeAtFront(bytes_->at(item_->endOffset, room, limit_), item_->crc32,
                                    item_->compressedSize, item_->size);
        if (size != 0) return size;
        checks_.failDamaged("has no data descriptor after its data, at offset " +
                            std::to_string(item_->endOffset) + ", that agrees with the directory");
    }

    ZipItem* item_;
    std::uint64_t limit_;
    ArchiveBytes* bytes_;
    StrayRecords* strays_;
    ItemChecks checks_;
};

// Readers of the directory and streaming readers could each make something else of a gap.
void refuseGap(std::uint64_t from, std::uint64_t to, ArchiveBytes& bytes,
               const fl::filesystem::path& file) {
    if (from == to) return;
    refuseHiddenItem(from, to, bytes, file);
    refuseZip(ZipRule::Hidden, file,
              "has " + std::to_string(to - from) + " bytes at offset " + std::to_string(from) +
                  " that belong to no item: readers could see two different packages" + kGetAgain);
}

// Bytes in front may be a program that unpacks the file.
void checkFront(std::uint64_t size, ArchiveBytes& bytes, StrayRecords& strays,
                const fl::filesystem::path& file) {
    refuseHiddenItem(0, size, bytes, file);
    strays.refuse(0, size, "the bytes in front of the first item");
}

}  // namespace

void checkLocalHeaders(std::vector<ZipItem>& items, std::uint64_t directoryOffset,
                       ArchiveBytes& bytes, const fl::filesystem::path& file) {
    const auto isBefore = [](const ZipItem& a, const ZipItem& b) {
        return a.headerOffset < b.headerOffset;
    };
    if (!std::is_sorted(items.begin(), items.end(), isBefore)) {
        std::stable_sort(items.begin(), items.end(), isBefore);
    }
    StrayRecords strays(bytes, file);
    std::uint64_t end = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        ZipItem& item = items[i];
        if (item.headerOffset > directoryOffset) {
            ItemChecks(file, item)
                .failDamaged("is at offset " + std::to_string(item.headerOffset) +
                             ", after the start of the directory");
        }
        if (i == 0) checkFront(item.headerOffset, bytes, strays, file);
        if (i != 0) refuseGap(end, item.headerOffset, bytes, file);
        const bool isLast = i + 1 == items.size();
        const std::uint64_t next = isLast ? directoryOffset : items[i + 1].headerOffset;
        LocalHeaderCheck(item, std::min(next, directoryOffset), bytes, strays, file).run();
        end = item.endOffset;
    }
    if (items.empty()) checkFront(directoryOffset, bytes, strays, file);
    if (!items.empty()) refuseGap(end, directoryOffset, bytes, file);
}

}  // namespace opc::zip
