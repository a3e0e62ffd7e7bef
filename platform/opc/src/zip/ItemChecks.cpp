#include "platform/opc/src/zip/ItemChecks.hpp"

#include <foundation/Shown.hpp>

#include <string_view>

#include "platform/opc/src/Ascii.hpp"
#include "platform/opc/src/zip/ZipError.hpp"

namespace opc::zip {

void ItemChecks::failUnsupported(const std::string& what) const {
    refuseItem(ZipRule::Unsupported, *file_, item_->displayName(), what);
}

void ItemChecks::failDamaged(const std::string& what) const {
    refuseItem(ZipRule::Item, *file_, item_->displayName(), what + kGetAgain);
}

void ItemChecks::refuseEncryption(std::uint16_t flags) const {
    if (flags & format::flag::kAnyEncryption) {
        failUnsupported("is encrypted, which packages do not allow; decrypt the file first");
    }
}

format::Bytes ItemChecks::checkExtraFields(format::Bytes fields) const {
    format::Bytes zip64;
    const bool isWhole = format::forEachExtra(fields, [&](const format::ExtraField& field) {
        if (field.identifier == format::extra::kUnicodePath) refuseRenaming(field.content);
        if (field.identifier == format::extra::kExtendedLocalHeader) {
            failUnsupported(
                "has an extra field (0x6C78) from which some readers may make it a link or a "
                "directory; pack it again");
        }
        if (field.identifier != format::extra::kZip64) return;
        if (zip64.data() != nullptr)
            failDamaged("has two zip64 fields, of which readers could take either");
        zip64 = field.content;
    });
    if (!isWhole) failDamaged("has an extra field that claims more bytes than its record has");
    return zip64;
}

// Readers that know this field take the name from it, and others do not. The difference does no
// harm if both names have characters outside ASCII: neither can be a part's name then, and ordinary
// writers put the field into such items.
void ItemChecks::refuseRenaming(format::Bytes unicodePath) const {
    if (unicodePath.size() < format::extra::kUnicodePathName) {
        failDamaged("has a Unicode path field that is too short");
    }
    const std::string_view other =
        format::asText(unicodePath.subspan(format::extra::kUnicodePathName));
    if (other == item_->name || (!ascii::isAscii(other) && !ascii::isAscii(item_->name))) return;
    failDamaged("has a Unicode path field that renames it to \"" +
                foundation::shown(displayName(other, true)) +
                "\": readers could see two different packages");
}

}  // namespace opc::zip
