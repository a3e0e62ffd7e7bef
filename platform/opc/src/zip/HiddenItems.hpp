#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/ArchiveBytes.hpp"

#include <fl/filesystem.hpp>

#include <cstdint>

// A hidden item is one that the directory does not list, but that a streaming reader, which starts
// at the front of the file and ignores the directory, would find. It could be in two places: in a
// gap between items, or within the data of an item whose size only its descriptor gives. A
// streaming reader ends such an item where its data seems to end, and what follows could be another
// item.
namespace opc::zip {

// Refuses a local header's signature in the bytes [from, to), which belong to no item. Throws
// ZipRefusal about `file`; a failure to read is a std::system_error.
void refuseHiddenItem(std::uint64_t from, std::uint64_t to, ArchiveBytes& bytes,
                      const fl::filesystem::path& file);

// The next two refuse an item whose data a streaming reader would end too early. They search the
// data of items with a descriptor for a signature that such an end would need, and read an item
// that has one through its content stream, which throws if the data really ends early. So an item
// that just happens to hold the signature is accepted.

// Looks through all small items (up to 1 MiB of data and of content) of an archive that is being
// opened. Throws ZipRefusal, also for an item whose content is damaged; a failure to read is a
// std::system_error.
void refuseItemsInSmallData(const ZipArchive& archive, ArchiveBytes& bytes);
// Looks through one item that is too large for the function above, and does nothing for any other.
// Called before a save takes the item over into a new file. Throws opc::Exception.
void refuseItemsInLargeData(const ZipArchive& archive, const ZipItem& item);

}  // namespace opc::zip
