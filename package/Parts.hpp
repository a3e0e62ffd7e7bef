#pragma once

#include <appserialization/ustring.hpp>
#include <opc/Package.hpp>

#include <cstdint>

namespace appserialization {

// The part that a relationship of the package leads to. Throws opc::Exception when there is none.
opc::model::Part getTargetPart(const opc::model::Package& package,
                               const opc::model::Relationship& relationship);

// Throws opc::model::PartTooLarge for a screenshot that is larger than readers and the writer take into memory.
void requireScreenshotSize(const ustring& fileName, const opc::model::PartName& part,
                           std::uint64_t size);

}  // namespace appserialization
