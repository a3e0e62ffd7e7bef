#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/ArchiveBytes.hpp"

#include <fl/filesystem.hpp>

#include <string>
#include <vector>

namespace opc::zip {

// Reads the `count` records that `directory` consists of. The items have no data or end offset yet;
// their records are views of `directory`. Throws opc::Exception for a record that breaks a rule and
// when the records do not fill the directory exactly.
std::vector<ZipItem> readDirectory(const std::string& directory, std::uint64_t count,
                                   const fl::filesystem::path& file);

// Compares every item's local header with its directory record, finds where its data starts and
// ends, and checks that no two items share bytes. Puts the items in the order of their data.
void checkLocalHeaders(std::vector<ZipItem>& items, std::uint64_t directoryOffset,
                       ArchiveBytes& bytes, const fl::filesystem::path& file);

}  // namespace opc::zip
