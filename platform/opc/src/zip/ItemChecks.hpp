#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/ZipFormat.hpp"

#include <fl/filesystem.hpp>

#include <string>

namespace opc::zip {

// What the checks of directory records and of local headers have in common: an item to complain
// about, and rules for flags and extra fields.
class ItemChecks {
public:
    ItemChecks(const fl::filesystem::path& file, const ZipItem& item)
        : file_(&file), item_(&item) {}

    [[noreturn]] void failUnsupported(const std::string& what) const;
    // Tells to get the file again.
    [[noreturn]] void failDamaged(const std::string& what) const;
    void refuseEncryption(std::uint16_t flags) const;
    // The content of the zip64 field, empty when there is none. Refuses malformed fields, a second
    // zip64 field and fields that rename the item or say what kind of file it is.
    format::Bytes checkExtraFields(format::Bytes fields) const;

private:
    void refuseRenaming(format::Bytes unicodePath) const;

    const fl::filesystem::path* file_;
    const ZipItem* item_;
};

}  // namespace opc::zip
