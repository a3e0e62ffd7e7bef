#pragma once

#include <string>
#include <vector>

#include "app/Changes.hpp"
#include "app/FileName.hpp"
#include "app/PackageParts.hpp"
#include "app/Packaging.hpp"

namespace qzapp {

// What an edit does to a packaged app, found out before anything is written.
struct EditPlan {
    Changes changes;
    PartsToEdit removed;      // the screenshot, the signatures or both
    bool isRemoving = false;  // whether the app has any of those

    bool isEmpty() const { return !changes.any() && !isRemoving; }
};

// Compares what is asked for with what the app holds. `opened` is held open. Throws as changesTo()
// does, and Error if the file changes meanwhile.
EditPlan planEdit(const FileName& opened, const Content& content, const PartsToEdit& removed);

// Makes the edit: several saves that count as one, whose result is checked before it replaces the
// file (see Transaction). `opened` is the file for which the plan was made; throws Error, and
// changes nothing, if `file` is another one by now. Returns notes on what the user may not expect.
std::vector<std::string> applyEdit(const FileName& file, const FileName& opened,
                                   const Content& content, const EditPlan& plan);

}  // namespace qzapp
