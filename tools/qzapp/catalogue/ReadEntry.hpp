#pragma once

#include <string>

#include "tools/qzapp/catalogue/Entry.hpp"
#include "tools/qzapp/catalogue/Pictures.hpp"

namespace qzapp {

// A file below a folder, as the walk over it found it.
struct FoundFile {
    std::string path;  // the bytes of its name
    Stamp stamp;
};

// Reads a file for the catalogue: metadata, screenshot and its picture, hash and what "qzapp check"
// finds. An app that cannot be read gives an entry with the reason, and one that has gone since it
// was found an entry without an app. If it changes while it is read, or a failure of the system
// keeps it from being read, the entry says that it is to be read again.
Entry readEntry(const FoundFile& found, Pictures& pictures);

}  // namespace qzapp
