#pragma once

#include <CLI/App.hpp>

#include <functional>
#include <span>

#include "tools/qzapp/cli/Report.hpp"

namespace qzapp {

// Runs a verb once its command line has been parsed. Returns the exit status, or throws Error.
using Action = std::function<int()>;

// A verb of the tool. `declare` adds its options to `command`; the action that it returns owns
// them.
struct Verb {
    const char* name;
    const char* summary;
    Action (*declare)(CLI::App& command);
    int failure = kFailed;  // the exit status if the action throws, or there is no memory for it
};

// All verbs, in the order of the help.
std::span<const Verb> verbs();

Action declareCreate(CLI::App& command);
Action declareEdit(CLI::App& command);
Action declareConvert(CLI::App& command);
Action declareInfo(CLI::App& command);
Action declareShow(CLI::App& command);
Action declareDiff(CLI::App& command);
Action declareGallery(CLI::App& command);
Action declareExtract(CLI::App& command);
Action declareParts(CLI::App& command);
Action declareItems(CLI::App& command);
Action declareCheck(CLI::App& command);
Action declareIndex(CLI::App& command);
Action declareFind(CLI::App& command);
Action declareMerge(CLI::App& command);
Action declareGitSetup(CLI::App& command);
Action declareRepack(CLI::App& command);

}  // namespace qzapp
