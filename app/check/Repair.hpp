#pragma once

#include <opc/ZipArchive.hpp>

#include <cstdint>
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

// Writes a clean package to `out`, whole or not at all, from what can still be read of `file`,
// which is never changed. An item is kept whole or lost. Throws Error if nothing worth keeping can
// be read, if `file` changes meanwhile, or if `out` cannot be written.
RepairReport repairPackage(const FileName& file, const FileName& out);

}  // namespace qzapp
