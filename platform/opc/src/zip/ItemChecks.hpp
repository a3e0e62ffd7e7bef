#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/ZipFormat.hpp"

#include <fl/filesystem.hpp>

#include <cstdint>
#include <string>

namespace opc::zip {

// The checks that directory records and local headers have in common, about one item, and the
// errors that name it. Short-lived: file and item are referred to, and the item's name must have
// been read.
class ItemChecks {
public:
    ItemChecks(const fl::filesystem::path& file, const ZipItem& item)
        : file_(&file), item_(&item) {}

    // Throws ZipRefusal with ZipRule::Unsupported. `what` names the remedy.
    [[noreturn]] void failUnsupported(const std::string& what) const;
    // Throws ZipRefusal with ZipRule::Item, and appends the remedy to `what`: get the file again.
    [[noreturn]] void failDamaged(const std::string& what) const;
    // `flags` are those of either record.
    void refuseEncryption(std::uint16_t flags) const;
    // Returns the content of the zip64 field; its data() is null if there is no such field. Refuses
    // extra fields that are malformed, a second zip64 field, and fields that give the item another
    // name or say what kind of file it is.
    format::Bytes checkExtraFields(format::Bytes fields) const;

private:
    void refuseRenaming(format::Bytes unicodePath) const;

    const fl::filesystem::path* file_;
    const ZipItem* item_;
};

}  // namespace opc::zip
