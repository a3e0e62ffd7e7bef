#pragma once

#include "platform/opc/src/salvage/DamagedFile.hpp"
#include "platform/opc/src/salvage/Salvage.hpp"

namespace opc::zip {

// Finds the items of a file whose directory is damaged or lost, by its single records and by local
// headers. Those in `within`, which are archives within the file, do not count.
//
// The bytes that a local header claims as its data are not searched, whether the item is whole or
// not, because they may be a zip file themselves. For the same reason, items after a place where
// one does not directly follow the other are dropped if there is a sign that such a file was found
// there: two items with the same name and different content.
Salvaged salvageByRecords(const SalvageSource& source, Ranges within);

}  // namespace opc::zip
