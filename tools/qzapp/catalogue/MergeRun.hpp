#pragma once

#include <cstdint>
#include <string>

#include "app/FileName.hpp"
#include "tools/qzapp/catalogue/Catalogue.hpp"

namespace qzapp {

// What was taken from another catalogue.
struct MergeResult {
    std::string label;                    // what the entries of its own folders are called
    std::int64_t taken = 0, removed = 0;  // files
    bool isCurrent = false;               // nothing in it is newer than what was merged before
    Made made = Made::Found;              // what became of the catalogue that took it
};

// Takes into a catalogue what another one holds, which may come from a stranger: all that is of its
// own folders and of catalogues that were merged into it. Replaces what was merged of the same
// catalogues before, if that is different, or older if it comes by way of a third catalogue. A
// child process that can write nothing reads the other catalogue and sends values, never SQL.
// Throws Error if the other one is damaged, is not a catalogue, or is this one or a copy of it.
// Call it before the first thread starts.
MergeResult mergeCatalogue(const FileName& catalogue, const FileName& other);

}  // namespace qzapp
