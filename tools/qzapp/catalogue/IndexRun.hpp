#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/AppFolder.hpp"
#include "app/FileName.hpp"
#include "tools/qzapp/catalogue/Catalogue.hpp"

namespace qzapp {

// What a run of "qzapp index" has done.
struct IndexResult {
    Made made = Made::Found;
    std::int64_t apps = 0, unreadable = 0;             // in the catalogue, after the run
    std::int64_t added = 0, changed = 0, removed = 0;  // files, apps or not
    // What could not be looked at, and would perhaps be at another time.
    std::vector<Unlisted> unread;
    std::int64_t unscaled = 0;  // apps whose screenshots could not be scaled now
};

// Brings a catalogue up to date with these folders: reads the files that are new or have changed,
// with `rescan` all of them, and takes out those that went. A child process that can write nothing
// reads them, on several threads. Each batch of entries is a transaction of its own. Throws Error
// if a folder cannot be listed at all, before anything is written, or if the catalogue cannot be
// written to; what was written before is kept then. Call it before the first thread starts.
IndexResult indexFolders(const FileName& catalogue, const std::vector<std::string>& folders,
                         bool rescan);

}  // namespace qzapp
