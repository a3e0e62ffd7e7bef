#pragma once

#include <appserialization/AppFileWriter.hpp>
#include <appserialization/AppMetadata.hpp>

#include "tools/qzapp/Content.hpp"
#include "tools/qzapp/FileName.hpp"

namespace qzapp {

// A record with just these fields.
appserialization::AppMetadata recordOf(const FieldValues& fields);

// Sets everything but the metadata.
void writeParts(appserialization::AppFileWriter& writer, const Content& content);

// Makes `out`, or replaces it, whole or not at all. Failures are Errors about it.
void createPackage(const FileName& out, const Content& content);

}  // namespace qzapp
