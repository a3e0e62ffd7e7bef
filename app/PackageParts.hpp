#pragma once

#include <appserialization/AppMetadataReader.hpp>
#include <foundation/ustring.hpp>

#include <optional>
#include <string>

#include "app/FileName.hpp"

// What an edit needs to know or do below the level of app files. Failures are Errors about the file.
namespace qzapp {

// What is going to be set or taken out.
struct PartsToEdit {
    bool code = false;
    bool model = false;
    bool metadata = false;
    bool screenshot = false;
    bool signature = false;
    foundation::ustring newFormat = {};  // of a screenshot that is set
};

// Of a package before it is edited.
struct PackageFacts {
    // The release that the app was made for, where the file has it beside that of the host that saved.
    std::optional<foundation::ustring> legacyRelease;
    // The picture that is the package's thumbnail and not its screenshot.
    std::optional<std::string> otherThumbnail;
    // The name that the new screenshot would have, where something else has it.
    std::optional<std::string> takenName;
};

// Throws where an edit would spoil what it is not about, or nobody can tell what it is about: when the
// package is signed and stays so, has several relationships for what is to be set, or one that leads to
// something else of the app.
PackageFacts requireEditable(const FileName& file, const PartsToEdit& parts);

// Sets the screenshot under a name of its own beside the part that has the usual one, and saves. Returns
// that name.
std::string setScreenshotBeside(const FileName& file,
                                const appserialization::Screenshot& screenshot);

// Takes out the screenshot or the signatures, with their relationships, and saves. Returns false, and
// changes nothing, when there are none.
bool removeParts(const FileName& file, const PartsToEdit& parts);

}  // namespace qzapp
