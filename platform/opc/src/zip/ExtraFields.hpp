#pragma once

#include "platform/opc/src/zip/ZipFormat.hpp"

#include <optional>

namespace opc::zip::format {

struct ExtraField {
    std::uint16_t identifier;
    std::size_t contentAt;  // from the start of all fields
    Bytes content;
};

// Calls `visit` with each of an item's extra fields. Returns false when one claims more bytes than
// there are. Up to three bytes behind the last one are padding, as some writers leave it.
template <class Visit>
bool forEachExtra(Bytes fields, Visit visit) {
    std::size_t at = 0;
    while (fields.size() - at >= extra::kHeaderSize) {
        const std::uint16_t identifier = load16(fields, at);
        const std::size_t size = load16(fields, at + 2);
        at += extra::kHeaderSize;
        if (size > fields.size() - at) return false;
        visit(ExtraField{identifier, at, fields.subspan(at, size)});
        at += size;
    }
    return true;
}

// The first field of this kind.
inline std::optional<ExtraField> findExtra(Bytes fields, std::uint16_t identifier) {
    std::optional<ExtraField> found;
    forEachExtra(fields, [&](const ExtraField& field) {
        if (field.identifier == identifier && !found) found = field;
    });
    return found;
}

}  // namespace opc::zip::format
