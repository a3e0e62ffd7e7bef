#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/ItemInput.hpp"

#include <fl/filesystem.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace opc::zip {

struct SalvageSource {
    std::shared_ptr<const ByteSource> bytes;
    std::uint64_t size;
    const fl::filesystem::path* file;  // for messages
};

// Finds the items of a damaged zip file whose content is whole, each read to its end, in the order of
// their data; no two share bytes or a name. `directory` is what the directory says where it can be
// read whole: then what it does not list is lost. Otherwise its single records are looked for, too.
// Adds to `lost` what was found but not kept. Reads each byte once for free, to its end, and again
// only so often, so that time is linear in what disjoint items inflate to; memory is linear in the
// file.
std::vector<ZipItem> salvageItems(const SalvageSource& source,
                                  std::optional<std::vector<ZipItem>> directory,
                                  std::vector<LostItem>& lost);

}  // namespace opc::zip
