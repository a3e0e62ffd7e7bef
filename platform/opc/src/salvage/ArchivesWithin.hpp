#pragma once

#include "platform/opc/src/salvage/CandidateArchive.hpp"
#include "platform/opc/src/salvage/DamagedFile.hpp"

#include <optional>

namespace opc::zip {

// What findArchives() returns.
struct ArchivesWithin {
    // The file's own directory if it was found. The file has no items but those that it lists.
    std::optional<WholeDirectory> own;
    // The ranges of zip files within the file, such as one that is the stored content of an item.
    // Their items are not the file's.
    Ranges others;
};

// Finds the archives in a damaged file by their end records, each with its directory right in front
// of it. If the file's own end is lost, an archive that is an item's content looks like the file's
// own; it differs in having records after it, or items in front of it, that are not its own or
// copies of its own. Takes time linear in the size of the file. A failure to read is a
// std::system_error.
ArchivesWithin findArchives(const SalvageSource& source);

}  // namespace opc::zip
