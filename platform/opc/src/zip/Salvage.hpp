#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/DamagedFile.hpp"

#include <vector>

namespace opc::zip {

// Finds the items of a damaged zip file whose content is whole, each read to its end, in the order of
// their data; no two share bytes or a name. Where the directory can be read whole, what it does not list
// is lost. Otherwise its single records and the local headers count. What a local header claims as its
// data is that item's, whole or not, and is not searched: it may be a zip file itself. What follows a
// place where the items do not join is kept only while nothing shows that it is of such a file.
// Adds to `lost` what was found but not kept. Reads each byte once for free, to its end, and again
// only so often, so that time is linear in what disjoint items inflate to; memory is linear in the
// file.
std::vector<ZipItem> salvageItems(const SalvageSource& source, std::vector<LostItem>& lost);

}  // namespace opc::zip
