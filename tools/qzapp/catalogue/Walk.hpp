#pragma once

#include <string>
#include <vector>

#include "app/AppFolder.hpp"
#include "tools/qzapp/catalogue/ReadEntry.hpp"
#include "tools/qzapp/catalogue/Rows.hpp"

namespace qzapp {

// What a walk over a folder found, each list in the order of names.
struct Walk {
    std::vector<FoundFile> files;
    std::vector<Unlisted> unlisted;
};

// Walks over a folder, which is named by its real path, and all folders below it. Symbolic links
// are left out, and what appsBelow() leaves out. Throws Error if the folder itself cannot be
// listed.
Walk walkOver(const std::string& folder);

// What is to be done so that the catalogue knows what the walk found.
struct Differences {
    std::vector<FoundFile> added, changed;
    std::vector<KnownFile> gone;
};

// Compares what was found below a folder with what is known of it, both in the order of names. With
// `rescan` all known files count as changed. Nothing is gone in a folder that could not be listed.
Differences compare(Walk walk, const std::vector<KnownFile>& known, bool rescan);

// The real paths of these folders without those that are below another one. Throws Error about a
// name that is not a folder's.
std::vector<std::string> outermost(const std::vector<std::string>& folders);

}  // namespace qzapp
