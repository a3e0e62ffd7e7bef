#pragma once

#include <CLI/App.hpp>

#include <optional>
#include <string>
#include <vector>

#include "app/Packaging.hpp"

namespace qzapp {

// The options of "create" and "edit" for what goes into an app, as the command line gives them.
struct ContentOptions {
    std::optional<std::string> code;
    std::optional<std::string> model;
    std::optional<std::string> metadata;
    std::optional<std::string> screenshot;
    std::vector<std::string> set;
    std::vector<std::string> clear, add, remove;  // "edit" only
};

// Declares these options (except --clear, --add and --remove) on `command`. `options` must outlive
// it. With `required`, code and model must be given.
void addContentOptions(CLI::App& command, ContentOptions& options, bool required);

// Declares --add and --remove. `options` must outlive `command`.
void addListOptions(CLI::App& command, ContentOptions& options);

// Reads and checks everything that the options name; holds the model's file open. Throws UsageError
// for wrong options, Error for files that are missing or bad.
Content loadContent(const ContentOptions& options);

}  // namespace qzapp
