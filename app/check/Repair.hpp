#pragma once

#include <opc/ZipArchive.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "app/FileName.hpp"

namespace qzapp {

// What became of a package's content.
struct RepairReport {
    struct Kept {
        std::string name;
        std::uint64_t size;
    };
    std::vector<Kept> kept;
    std::vector<opc::zip::LostItem> lost;
    std::vector<std::string> mended;  // what differs from the original, one phrase each
};

// Looks at a repaired copy that is complete, but not in its place yet. `copy` is held open, and
// messages about it show the name that it will get.
using Examine = std::function<void(const RepairReport& report, const FileName& copy)>;

// Writes a clean package to `out`, whole or not at all, from what can still be read of `file`,
// which is never changed. An item is kept whole or lost. Putting the copy in its place is the last
// step: what `examine` throws leaves `out` alone, and it is replaced only if `mayReplace`. Throws
// Error if nothing worth keeping can be read, if `file` changes meanwhile, or if `out` cannot be
// written.
void repairPackage(const FileName& file, const FileName& out, bool mayReplace,
                   const Examine& examine);

}  // namespace qzapp
