#pragma once

#include <appserialization/AppFileWriter.hpp>
#include <appserialization/AppMetadata.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <foundation/ustring.hpp>

#include <optional>
#include <vector>

#include "app/Fields.hpp"
#include "app/FileName.hpp"

namespace qzapp {

// What is to be put into an app, read and checked as far as that goes without the app. The model is
// held open, since it may be larger than memory.
struct Content {
    std::optional<foundation::ustring> code;
    std::optional<FileName> model;
    std::optional<appserialization::Screenshot> screenshot;
    FieldValues fields;
    std::vector<FileName> sources;  // all files that it was read from, held open

    bool empty() const { return !code && !model && !screenshot && fields.empty(); }
};

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
