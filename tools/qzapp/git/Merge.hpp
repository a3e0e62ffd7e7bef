#pragma once

#include <optional>
#include <vector>

#include "app/FileName.hpp"
#include "app/Transaction.hpp"
#include "tools/qzapp/git/LineMerge.hpp"
#include "tools/qzapp/git/MergePlan.hpp"

namespace qzapp {

// One of the three files, held open, with a name that has the extension of its form. Without a
// file, there was no such app.
using MergeInput = std::optional<FileName>;

// Writes to `working`, which is Empty, the app `ours` with what `theirs` changed since `base`. It
// is complete, whatever the conflicts. Throws Error if one of the files cannot be read as a whole,
// or an app that is signed would be changed.
std::vector<Conflict> mergeApps(const MergeInput& base, const FileName& ours,
                                const FileName& theirs, Transaction& working, LineMerge& lines);

}  // namespace qzapp
