#pragma once

#include <CLI/App.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <foundation/ustring.hpp>

#include <optional>
#include <string>
#include <vector>

#include "tools/qzapp/Fields.hpp"
#include "tools/qzapp/FileName.hpp"

namespace qzapp {

// The options of "create" and "edit" that say what goes into an app, as given.
struct ContentOptions {
    std::optional<std::string> code;
    std::optional<std::string> model;
    std::optional<std::string> metadata;
    std::optional<std::string> screenshot;
    std::vector<std::string> set;
    std::vector<std::string> clear;  // "edit" only
};

// What is to be put into an app, read and checked as far as that goes without the app. The model is
// held open, since it may be larger than memory.
struct Content {
    std::optional<foundation::ustring> code;
    std::optional<FileName> model;
    std::optional<appserialization::Screenshot> screenshot;
    FieldValues fields;

    bool empty() const { return !code && !model && !screenshot && fields.empty(); }
};

// Declares the options that fill `options`, which must outlive `command`; code and model are required
// on demand.
void addContentOptions(CLI::App& command, ContentOptions& options, bool required);

// Throws UsageError for wrong options, Error for files that are missing or bad.
Content loadContent(const ContentOptions& options);

}  // namespace qzapp
