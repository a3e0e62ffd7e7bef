#include "platform/opc/src/zip/EndRecords.hpp"

#include <opc/FileKind.hpp>

#include <foundation/Shown.hpp>
#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/StrayRecords.hpp"
#include "platform/opc/src/zip/ZipError.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <vector>

namespace opc::zip {

namespace {

using namespace format;

class EndReader {
public:
    EndReader(ArchiveBytes& bytes, const fl::filesystem::path& file)
        : bytes_(&bytes), file_(&file), strays_(bytes, file) {}

    ArchiveEnd read() {
        findEnd();
        checkPadding();
        refuseSecondEnd();
        const Bytes record = bytes_->tail().subspan(at_);
        ArchiveEnd found;
        found.comment = asText(record.subspan(end::kRecordSize, commentLength(at_)));
        found.fileEnd = offsetInFile(endOf(at_));
        found.directory = readDirectoryRecord(record);
        checkDirectory(found.directory);
        strays_.refuse(found.comment, found.fileEnd - found.comment.size(), "the comment");
        refuseRecordsInData(found.directory.offset);
        return found;
    }

private:
    [[noreturn]] void fail(const std::string& what) const {
        refuseZip(ZipRule::End, *file_, what + kGetAgain);
    }

    std::uint64_t offsetInFile(std::size_t at) const {
        return bytes_->fileSize() - bytes_->tail().size() + at;
    }

    // The last place in the tail, before `limit`, where a whole end record could stand; npos if
    // there is none.
    std::size_t lastSignatureBefore(std::size_t limit) const {
        std::string signature;
        append(signature, end::kSignature);
        const std::string_view tail = asText(bytes_->tail());
        if (tail.size() < end::kRecordSize) return std::string_view::npos;
        // memrchr finds the first byte fast; std::string_view::rfind would compare everywhere.
        std::size_t before = std::min(limit, tail.size() - end::kRecordSize + 1);
        while (const void* found = memrchr(tail.data(), signature.front(), before)) {
            before = static_cast<std::size_t>(static_cast<const char*>(found) - tail.data());
            if (tail.substr(before).starts_with(signature)) return before;
        }
        return std::string_view::npos;
    }

    std::size_t commentLength(std::size_t at) const {
        return load16(bytes_->tail(), at + end::kCommentLength);
    }
    std::size_t endOf(std::size_t at) const { return at + end::kRecordSize + commentLength(at); }

    [[noreturn]] void failWithoutEnd() const {
        std::vector<std::byte> start(std::min<std::uint64_t>(FileKind::kStart, bytes_->fileSize()));
        bytes_->copy(0, start);
        const FileKind kind = FileKind::of(start);
        const std::string missing = ": there is no end record in its last " +
                                    std::to_string(bytes_->tail().size()) + " bytes";
        switch (kind.family) {
            case FileKind::Family::Empty:
                fail("is empty");
            case FileKind::Family::Zip:
                fail("begins as a zip file does, but its end is missing" + missing);
            case FileKind::Family::Unknown:
                fail("is not a zip file, or its end is missing" + missing);
            case FileKind::Family::Text:
            case FileKind::Family::Utf16Text:
            case FileKind::Family::Binary:
                break;
        }
        refuseZip(ZipRule::End, *file_,
                  "is not a zip file but " + std::string(kind.name) + "; choose another file");
    }

    void findEnd() {
        at_ = lastSignatureBefore(bytes_->tail().size());
        if (at_ == std::string_view::npos) failWithoutEnd();
        directoryEnd_ = offsetInFile(at_);
        if (endOf(at_) > bytes_->tail().size()) {
            fail("the end record at offset " + std::to_string(directoryEnd_) +
                 " announces a comment of " + std::to_string(commentLength(at_)) +
                 " bytes, but the file ends before that");
        }
    }

    // Some readers allow for padding to a full block, which is zeros.
    void checkPadding() const {
        const Bytes behind = bytes_->tail().subspan(endOf(at_));
        const auto other =
            std::ranges::find_if_not(behind, [](std::byte each) { return each == std::byte{0}; });
        if (other == behind.end()) return;
        fail("has " + std::to_string(behind.size()) + " bytes after its end, at offset " +
             std::to_string(offsetInFile(endOf(at_))) +
             ", that are not zeros: readers could see two different packages");
    }

    // Whether some reader would pass the end record over and go on searching. It does so for an end
    // record that padding follows, unless a local header is right where the record, read as one of
    // a file with bytes in front, says that the file begins.
    bool isPassedOver() const {
        const Bytes record = bytes_->tail().subspan(at_);
        const bool refersToZip64 = load32(record, end::kDirectorySize) == kInZip64_32 ||
                                   load32(record, end::kDirectoryOffset) == kInZip64_32;
        std::array<std::byte, sizeof local::kSignature> start;
        bytes_->copy(0, start);
        return endOf(at_) < bytes_->tail().size() &&
               (refersToZip64 || load32(start, 0) != local::kSignature);
    }

    // Readers search from the back, some for any end record and some for one whose comment ends the
    // file. They could use an earlier end record whose comment reaches into or past this one. An
    // earlier record that ends before this one is an item's content, such as a stored zip file. A
    // signature to which no directory belongs is content too: compressed data sometimes holds it.
    void refuseSecondEnd() {
        const bool isPassed = isPassedOver();
        for (std::size_t other = lastSignatureBefore(at_); other != std::string_view::npos;
             other = lastSignatureBefore(other)) {
            if ((isPassed || endOf(other) > at_) && strays_.endLeads(offsetInFile(other))) {
                throw StrayRecord(foundation::shown(*file_) + ": has two end records, at offsets " +
                                      std::to_string(offsetInFile(other)) + " and " +
                                      std::to_string(directoryEnd_) +
                                      ": readers could see two different packages" + kGetAgain,
                                  offsetInFile(other));
            }
        }
    }

    // Some readers search the last 64 KiB for zip64 records, also where the end record does not
    // refer to any, and some for the end record with the highest offset. So they may find those of
    // a zip file that is stored in an item.
    void refuseRecordsInData(std::uint64_t directoryOffset) {
        const std::uint64_t start = offsetInFile(0);
        if (start >= directoryOffset) return;
        const std::string_view data = asText(bytes_->tail()).substr(0, directoryOffset - start);
        strays_.refuseInData(data, start);
    }

    [[noreturn]] void failDisks() const {
        refuseZip(ZipRule::Unsupported, *file_,
                  "is one disk of a multi-disk zip archive, which is not supported; join the disks "
                  "first");
    }

    // Only a zip64 record makes a reference of the highest number; without one, some readers take
    // it for a disk.
    void checkDisks(std::uint32_t disk, std::uint32_t directoryDisk, bool isWide) const {
        for (const std::uint32_t number : {disk, directoryDisk}) {
            if (number != 0 && !(isWide && number == kInZip64_16)) failDisks();
        }
    }

    DirectoryRecord readDirectoryRecord(Bytes record) {
        DirectoryRecord directory{load16(record, end::kCount), load32(record, end::kDirectorySize),
                                  load32(record, end::kDirectoryOffset)};
        const std::uint64_t countHere = load16(record, end::kCountOnDisk);
        if (countHere != directory.count) {
            fail("the end record counts " + std::to_string(countHere) + " items on this disk and " +
                 std::to_string(directory.count) + " in all, which must be equal");
        }
        const std::uint64_t locatorAt =
            directoryEnd_ - std::min<std::uint64_t>(directoryEnd_, zip64locator::kRecordSize);
        const Bytes locator = bytes_->at(locatorAt, directoryEnd_ - locatorAt, locatorAt);
        const bool isWide = locator.size() == zip64locator::kRecordSize &&
                            load32(locator, 0) == zip64locator::kSignature;
        checkDisks(load16(record, end::kDisk), load16(record, end::kDirectoryDisk), isWide);
        return isWide ? readZip64(directory, locatorAt, locator) : directory;
    }

    // Some readers always use the zip64 records, others only for fields that refer to them. So a
    // field that does not refer to them must hold the same number as they do.
    DirectoryRecord readZip64(const DirectoryRecord& narrow, std::uint64_t locatorAt,
                              Bytes locator) {
        const std::uint64_t endAt = load64(locator, zip64locator::kEndOffset);
        if (load32(locator, zip64locator::kDisk) != 0 ||
            load32(locator, zip64locator::kDisks) > 1) {
            failDisks();
        }
        if (locatorAt < zip64end::kRecordSize || endAt != locatorAt - zip64end::kRecordSize) {
            fail("the zip64 locator at offset " + std::to_string(locatorAt) +
                 " points to a zip64 end record at offset " + std::to_string(endAt) +
                 ", which must stand right before it");
        }
        const Bytes record = bytes_->at(endAt, zip64end::kRecordSize, endAt);
        checkZip64Record(record, endAt);
        const DirectoryRecord wide{load64(record, zip64end::kCount),
                                   load64(record, zip64end::kDirectorySize),
                                   load64(record, zip64end::kDirectoryOffset)};
        checkAgreement(narrow.count, kInZip64_16, wide.count, "number of items");
        checkAgreement(narrow.size, kInZip64_32, wide.size, "size of the directory");
        checkAgreement(narrow.offset, kInZip64_32, wide.offset, "offset of the directory");
        directoryEnd_ = endAt;
        return wide;
    }

    void checkZip64Record(Bytes record, std::uint64_t at) const {
        if (load32(record, 0) != zip64end::kSignature ||
            load64(record, zip64end::kSizeOfRest) !=
                zip64end::kRecordSize - zip64end::kNotInSizeOfRest) {
            fail("there is no zip64 end record of " + std::to_string(zip64end::kRecordSize) +
                 " bytes at offset " + std::to_string(at) + ", where its locator points");
        }
        checkDisks(load32(record, zip64end::kDisk), load32(record, zip64end::kDirectoryDisk),
                   false);
        if (load64(record, zip64end::kCountOnDisk) != load64(record, zip64end::kCount)) {
            fail("the zip64 end record has one number of items for this disk and another in all");
        }
    }

    void checkAgreement(std::uint64_t narrow, std::uint64_t placeholder, std::uint64_t wide,
                        const char* what) const {
        if (narrow == placeholder || narrow == wide) return;
        fail("the end records contradict each other: the " + std::string(what) + " is " +
             std::to_string(narrow) + " in one and " + std::to_string(wide) + " in the zip64 one");
    }

    void checkDirectory(const DirectoryRecord& directory) const {
        if (directory.size > directoryEnd_ || directory.offset != directoryEnd_ - directory.size) {
            fail("the directory should end at offset " + std::to_string(directoryEnd_) +
                 ", where the end record starts, but has " + std::to_string(directory.size) +
                 " bytes from offset " + std::to_string(directory.offset) +
                 ": something was removed from the file or put into it");
        }
        if (directory.count > directory.size / central::kHeaderSize) {
            fail("the end record counts " + std::to_string(directory.count) +
                 " items, more than a directory of " + std::to_string(directory.size) +
                 " bytes holds");
        }
    }

    ArchiveBytes* bytes_;
    const fl::filesystem::path* file_;
    StrayRecords strays_;
    std::size_t at_ = 0;              // where the end record starts in the tail
    std::uint64_t directoryEnd_ = 0;  // where the first of the end records starts
};

}  // namespace

ArchiveEnd readArchiveEnd(ArchiveBytes& bytes, const fl::filesystem::path& file) {
    return EndReader(bytes, file).read();
}

}  // namespace opc::zip
