#pragma once

#include <appserialization/AppFileWriter.hpp>
#include <appserialization/AppMetadata.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <foundation/ustring.hpp>

#include <optional>
#include <set>
#include <vector>

#include "app/FieldValues.hpp"
#include "app/FileName.hpp"
#include "app/PackageParts.hpp"

namespace qzapp {

// What is to be put into an app, already read and checked as far as that is possible without the
// app. Only the model is not in memory, because it may be larger than that: its file is held open.
struct Content {
    std::optional<foundation::ustring> code;
    std::optional<FileName> model;
    std::optional<appserialization::Screenshot> screenshot;
    FieldValues fields;
    // Those of `fields` that the user named one by one, and not as part of a whole record.
    std::set<Field> named;
    ListEdits listEdits;            // for an app that exists; made after `fields` are set
    std::vector<FileName> sources;  // all files that the content was read from, held open

    bool hasMetadata() const { return !fields.empty() || !listEdits.empty(); }
    bool empty() const { return !code && !model && !screenshot && !hasMetadata(); }
};

// The parts that the content sets.
PartsToEdit partsIn(const Content& content);

// A record with these fields and no others.
appserialization::AppMetadata recordOf(const FieldValues& fields);

// Sets those of the code, model and screenshot that are in `parts`, and that `content` must have,
// through `writer`, which was constructed on `file`. The caller sets the metadata and closes the
// writer.
void writeParts(const FileName& file, appserialization::AppFileWriter& writer,
                const Content& content, const PartsToEdit& parts);

// Throws Error unless the model in the saved package has the size and checksum of the content's
// model and that file has not changed meanwhile. Needed because the library does not report an
// error if it cannot open the model's file: the package then has its old model, or an empty one.
void requireModelArrived(const FileName& package, const Content& content);

// Writes a new app to `out`, whole or not at all. What is there is replaced only if `mayReplace`.
// Failures are Errors about `out`, or about the model if that could not be read.
void createPackage(const FileName& out, const Content& content, bool mayReplace);

}  // namespace qzapp
