#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/DamagedFile.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace opc::zip {

// A directory that can be read whole. Where bytes were put into the file or removed from it, some items
// are at the offset that the directory says and some are `shift` bytes further.
struct WholeDirectory {
    std::vector<ZipItem> items;
    std::int64_t shift = 0;
};

struct ArchivesWithin {
    // The file's own directory: outside of what it describes there are no items.
    std::optional<WholeDirectory> own;
    // Zip files within the file, such as one that is an item's stored content. What they hold is not
    // the file's.
    Ranges others;
};

// Finds what the end records in a damaged file describe, whose directories stand right before them. An
// archive that was an item of another one looks like the file's own when the other one's end is lost; it
// is told by the items in front of it and behind it. Takes time linear in the file.
ArchivesWithin findArchives(const SalvageSource& source);

}  // namespace opc::zip
