#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/ArchiveBytes.hpp"

#include <fl/filesystem.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace opc::zip {

// The refusal of a record that leads to a second list of items.
class StrayRecord : public ZipRefusal {
public:
    // `offset` is where the record is in the file.
    StrayRecord(const std::string& message, std::uint64_t offset)
        : ZipRefusal(ZipRule::End, message), offset_(offset) {}
    std::uint64_t offset() const noexcept { return offset_; }

private:
    std::uint64_t offset_;
};

// Finds end records, zip64 end records and zip64 locators in places where the zip format has none:
// in front of the items, in extra fields and comments, and in the data of items. Many readers
// search the last part of a file for such records instead of following offsets, each for another
// one, so a stray record can lead one of them to a second list of items. A signature alone does no
// harm, since compressed data sometimes holds it: a record counts if a directory or a zip64 end
// record is where it says. For one thread at a time; a failure to read is a std::system_error.
class StrayRecords {
public:
    // Both must outlive this object. `file` is for messages.
    StrayRecords(ArchiveBytes& bytes, const fl::filesystem::path& file)
        : bytes_(&bytes), file_(&file) {}

    // Throws StrayRecord if one begins in `text`, which is what the file holds from `offset`.
    // `place` says where that is, for the message: "the comment".
    void refuse(std::string_view text, std::uint64_t offset, const char* place);
    // The same for the bytes [from, to) of the file.
    void refuse(std::uint64_t from, std::uint64_t to, const char* place);
    // The same for data of items, which may be a zip file: the end record of one does no harm
    // unless the offset in it is right in this file.
    void refuseInData(std::string_view text, std::uint64_t offset);

    // Whether some reader would find a directory from the end record at `offset`: where the record
    // says, right before it, or through a zip64 locator. A record that counts no items, or at which
    // the file begins, needs no directory.
    bool endLeads(std::uint64_t offset);

private:
    enum class Place { Outside, Data };
    std::optional<std::uint64_t> find(std::string_view text, std::uint64_t offset, Place place);
    void refuse(std::string_view text, std::uint64_t offset, Place place, const char* placeName);
    bool leads(std::uint32_t signature, std::uint64_t offset, Place place);
    bool statedDirectoryExists(std::uint64_t endOffset);
    bool wideEndLeads(std::uint64_t offset);
    bool locatorLeads(std::uint64_t offset);
    bool holds(std::uint32_t signature, std::uint64_t offset);

    ArchiveBytes* bytes_;
    const fl::filesystem::path* file_;
    std::size_t candidates_ = 0;
};

}  // namespace opc::zip
