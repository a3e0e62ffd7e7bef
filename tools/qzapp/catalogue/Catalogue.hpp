#pragma once

#include <memory>

#include "app/FileName.hpp"
#include "tools/qzapp/catalogue/Sqlite.hpp"
#include "tools/qzapp/cli/Cage.hpp"

namespace qzapp {

// Opens the databases of "qzapp index". All of these functions throw Error about the file if it is
// not a catalogue of this version; what is not a catalogue is left untouched.

// Opens a catalogue that somebody else may have made, for reading. The tables in it are exactly
// those of schema.sql, so no statement can meet a view, a trigger or a virtual table of a stranger.
std::unique_ptr<SqlConnection> openCatalogue(const FileName& file);

// Throws Error unless each page and row of the database is whole. Reads all of it.
void requireWhole(const FileName& file, const SqlConnection& catalogue);

// Lets this process read a catalogue and nothing else from now on.
void confineToCatalogue(const FileName& file);
// Lets a process that enters the cage read a catalogue.
void letReadCatalogue(Cage& cage, const FileName& file);

enum class Made { Found, New, Rebuilt };

// Opens a catalogue for writing. Makes it if there is none; empties and rebuilds one of an older
// version. Says in `made` which it was.
std::unique_ptr<SqlConnection> openOrMakeCatalogue(const FileName& file, Made& made);

}  // namespace qzapp
