#pragma once

#include <string>
#include <vector>

#include "app/FieldValues.hpp"
#include "app/FileName.hpp"
#include "app/PackageParts.hpp"
#include "app/Packaging.hpp"

namespace qzapp {

// What a content would change in an app.
struct Changes {
    PartsToEdit parts = {};
    FieldValues fields = {};              // for the metadata
    std::vector<std::string> notes = {};  // on items of lists that are there, or not there, already

    bool any() const { return parts.code || parts.model || parts.metadata || parts.screenshot; }
};

// Compares the content with what the app holds; reads both models, piece by piece, if they have the
// same size. The time and the release of the host that a save would write do not count. What the
// app holds but cannot be read counts as changed.
//
// Readers assume a default for some fields that an app lacks. Such a default is not in the app: a
// value that equals it is a change if the user named the field, but not if it is one of a whole
// record, which may have been made by reading this very app.
//
// Throws as requireEditable() does, except that signatures may stay: nothing may have to change.
Changes changesTo(const FileName& file, const Content& content);

}  // namespace qzapp
