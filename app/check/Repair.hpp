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
    std::vector<std::string> mended;  // sentences about what is other than it was
};

// Writes to `out`, whole or not at all, a package of what can still be read of `file`, which is only
// read. Nothing is kept in part. Throws Error when nothing at all can be read or `out` cannot be
// written.
RepairReport repairPackage(const FileName& file, const FileName& out);

}  // namespace qzapp
