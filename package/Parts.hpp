#pragma once

#include <appserialization/ustring.hpp>
#include <opc/Package.hpp>

#include <cstdint>

namespace appserialization {

// Throws opc::model::PartTooLarge for a screenshot that is larger than readers and the writer take
// into memory.
void requireScreenshotSize(const ustring& fileName, const opc::model::PartName& part,
                           std::uint64_t size);

}  // namespace appserialization
