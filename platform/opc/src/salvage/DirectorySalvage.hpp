#pragma once

#include "platform/opc/src/salvage/CandidateArchive.hpp"
#include "platform/opc/src/salvage/DamagedFile.hpp"
#include "platform/opc/src/salvage/Salvage.hpp"

namespace opc::zip {

// Finds the items of a damaged file whose own directory can be read as a whole. Only items that it
// lists are kept: where it says that they are or, if bytes were put into the file or removed from
// it, where their local headers are.
Salvaged salvageByDirectory(const SalvageSource& source, const WholeDirectory& directory);

}  // namespace opc::zip
