#pragma once

#include <CLI/App.hpp>

#include <optional>
#include <string>
#include <vector>

#include "app/Packaging.hpp"
#include "tools/qzapp/cli/Report.hpp"

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

// Declares the options that fill `options`, which must outlive `command`; code and model are required
// on demand.
void addContentOptions(CLI::App& command, ContentOptions& options, bool required);

// Throws UsageError for wrong options, Error for files that are missing or bad.
Content loadContent(const ContentOptions& options);

}  // namespace qzapp
