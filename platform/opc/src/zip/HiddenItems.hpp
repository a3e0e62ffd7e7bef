#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/ArchiveBytes.hpp"

#include <fl/filesystem.hpp>

#include <cstdint>

// Items that the directory does not list, but that a reader finds who starts at the front of the file.
namespace opc::zip {

// Looks through the bytes between two items, which do no harm unless such a reader would find another
// item there. Throws ZipRefusal about `file`.
void refuseHiddenItem(std::uint64_t from, std::uint64_t to, ArchiveBytes& bytes,
                      const fl::filesystem::path& file);

// Such a reader ends an item with a descriptor where its data seem to
// end, and may find another item behind that, within what the directory says are the item's data.
// An item that may be one is read to its end, which tells.

// Looks through the small items of an archive that is being opened. Throws ZipRefusal.
void refuseItemsInSmallData(const ZipArchive& archive, ArchiveBytes& bytes);
// Looks through an item that was too large for that, and does nothing for others. Throws opc::Exception.
void refuseItemsInLargeData(const ZipArchive& archive, const ZipItem& item);

}  // namespace opc::zip
