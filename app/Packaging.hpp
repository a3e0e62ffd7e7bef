#pragma once

#include <appserialization/AppFileWriter.hpp>
#include <appserialization/AppMetadata.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <foundation/ustring.hpp>

#include <optional>
#include <vector>

#include "app/FieldValues.hpp"
#include "app/FileName.hpp"

namespace qzapp {

// What is to be put into an app, already read and checked as far as that is possible without the
// app. Only the model is not in memory, because it may be larger than that: its file is held open.
struct Content {
    std::optional<foundation::ustring> code;
    std::optional<FileName> model;
    std::optional<appserialization::Screenshot> screenshot;
    FieldValues fields;
    std::vector<FileName> sources;  // all files that the content was read from, held open

    bool empty() const { return !code && !model && !screenshot && fields.empty(); }
};

// A record with these fields and no others.
appserialization::AppMetadata recordOf(const FieldValues& fields);

// Sets the code, model and screenshot that `content` has through `writer`, which was constructed on
// `file`. The caller sets the metadata and closes the writer.
void writeParts(const FileName& file, appserialization::AppFileWriter& writer,
                const Content& content);

// Throws Error unless the model in the saved package has the size and checksum of the model's file
// and that file has not changed meanwhile. Needed because the library does not report an error if
// it cannot open the model's file: the package then has its old model, or an empty one.
void requireModelArrived(const FileName& package, const Content& content);

// Writes a new app to `out`, replacing what is there, whole or not at all. Failures are Errors
// about `out`, or about the model if that could not be read.
void createPackage(const FileName& out, const Content& content);

}  // namespace qzapp
