#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/salvage/DamagedFile.hpp"
#include "platform/opc/src/salvage/UnconvertedFile.hpp"

#include <span>
#include <string>
#include <vector>

namespace opc::zip {

// What salvageItems() returns.
struct Salvaged {
    // Whether the file's own directory is whole and where the end record says.
    bool isExact = false;
    std::vector<LostItem> lost;  // what was found but not kept
    // In the order of their data. Each was read to its end; no two share bytes or a name.
    std::vector<ZipItem> items;
};

// Finds the items of a damaged zip file whose content is whole, by its directory if that can be
// read as a whole, otherwise by single records and local headers. Of two items that some reader
// takes for one, or for a file and its folder, the one whose name is `expected` is kept, then one
// whose name is plain.
//
// Takes time linear in what disjoint items inflate to, because bytes that are read more than once
// count against a budget, and memory linear in the size of the file. A failure to read is a
// std::system_error.
Salvaged salvageItems(const SalvageSource& source, std::span<const std::string> expected);

// Whether a file was converted as a text after it was written, as is seen when its items, as they
// were `found`, are compared with those that were found `before` the conversion, in `unconverted`.
// Text with carriage returns in an item must not pass for a conversion of the file.
bool isConversionOf(const Salvaged& before, const Salvaged& found,
                    const UnconvertedFile& unconverted);

}  // namespace opc::zip
