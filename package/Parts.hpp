#pragma once

#include <appserialization/ustring.hpp>
#include <opc/PartName.hpp>

#include <cstdint>

namespace appserialization {

// Throws opc::model::PartTooLarge, about the part `part` of the file, if a screenshot of `size`
// bytes is larger than readers take into memory. The writer refuses it too, so that it can be read
// back.
void requireScreenshotSize(const ustring& fileName, const opc::model::PartName& part,
                           std::uint64_t size);

}  // namespace appserialization
