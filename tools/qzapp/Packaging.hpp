#pragma once

#include <appserialization/AppFileWriter.hpp>
#include <appserialization/AppMetadata.hpp>

#include "tools/qzapp/Content.hpp"
#include "tools/qzapp/FileName.hpp"

namespace qzapp {

// A record with just these fields.
appserialization::AppMetadata recordOf(const FieldValues& fields);

// Sets everything but the metadata of the app `file`, which the writer was made for.
void writeParts(const FileName& file, appserialization::AppFileWriter& writer,
                const Content& content);

// Throws Error unless the package holds the model that was given, whole and as it still is. The library
// reports no error when it cannot open the model's file: the package then has its old model, or an empty
// one.
void requireModelArrived(const FileName& package, const Content& content);

// Makes `out`, or replaces it, whole or not at all. Failures are Errors about it.
void createPackage(const FileName& out, const Content& content);

}  // namespace qzapp
