#pragma once

#include "tools/qzapp/FileName.hpp"

namespace qzapp {

// What an edit needs to know or do below the level of app files. Failures are Errors about the file.

// Throws when the package has several metadata parts: readers then take none of them, and an edit
// would lose the lists.
void requireOneMetadataPart(const FileName& file);

// Removes the screenshot part with its relationships and saves. Returns false, and changes nothing,
// when there is none; throws when there are several.
bool removeScreenshot(const FileName& file);

}  // namespace qzapp
