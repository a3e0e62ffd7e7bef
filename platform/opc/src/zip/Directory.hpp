#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/ArchiveBytes.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <fl/filesystem.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace opc::zip {

// The steps that make a list of items from a zip file whose end records have been read. They
// throw ZipRefusal about `file`, with the rule that was broken and the item at fault.

// Reads the `count` records that `directory` consists of, in their order. `count` must be possible
// for the directory's size, as readArchiveEnd() makes sure, because room for as many items is
// reserved. The items' `dataOffset`, `endOffset` and `hasDescriptor` are not known yet. Their
// `directoryRecord`s are views of `directory`, which must outlive their use. Refuses records that
// break a rule, and records that do not fill the directory exactly.
std::vector<ZipItem> readDirectory(const std::string& directory, std::uint64_t count,
                                   const fl::filesystem::path& file);

// Compares every item's local header with its directory record and sets the rest of the item: where
// its data starts and ends, and whether a data descriptor follows. Sorts the items in the order of
// their data. Refuses items that share bytes with each other or with the directory, and items
// between them that the directory does not list. Reads only headers, descriptors and gaps, never
// data. A failure to read is a std::system_error.
void checkLocalHeaders(std::vector<ZipItem>& items, std::uint64_t directoryOffset,
                       ArchiveBytes& bytes, const fl::filesystem::path& file);

// Both steps, for the directory that `record` describes. Refuses records in the directory that lead
// to a second one, too.
std::vector<ZipItem> readItems(const std::string& directory, const format::DirectoryRecord& record,
                               ArchiveBytes& bytes, const fl::filesystem::path& file);

}  // namespace opc::zip
