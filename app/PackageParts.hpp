#pragma once

#include <appserialization/AppMetadataReader.hpp>
#include <foundation/ustring.hpp>
#include <opc/Package.hpp>

#include <optional>
#include <string>

#include "app/Error.hpp"
#include "app/FileName.hpp"

// What "qzapp edit" does with the parts of a package, because the public writer cannot. All
// failures are Errors about the file.
namespace qzapp {

// The package is signed, and its signatures are to stay. What to do about it is for the caller to
// add, since each front end has its own way to say that they may go.
class SignedError : public Error {
public:
    using Error::Error;
};

// Which parts an edit sets or removes.
struct PartsToEdit {
    bool code = false;
    bool model = false;
    bool metadata = false;
    bool screenshot = false;
    bool signature = false;  // removes all signatures
    // The format of the new screenshot; empty if the screenshot is removed or not edited.
    foundation::ustring newFormat = {};
};

// The release that a user has set, which the file holds besides that of the host that saved it.
std::optional<foundation::ustring> legacyReleaseOf(opc::model::Package& package);

// What an edit needs to know of the package as it was before.
struct PackageFacts {
    // A metadata edit that does not set KORVALRelease has to set this one again.
    std::optional<foundation::ustring> legacyRelease;
    // The name of the package's thumbnail if it is a picture other than the screenshot.
    std::optional<std::string> otherThumbnail;
    // The part name that the new screenshot would get, if something else has that name.
    std::optional<std::string> takenName;
};

// Throws SignedError if the package is signed and the signatures are to stay. Also throws if the
// edit would destroy something else or it is unclear which part it would replace: if several
// relationships of the same type exist, or if one leads to another part of the app, to an item
// without a content type or past a part that has the usual name. Changes nothing.
PackageFacts requireEditable(const FileName& file, const PartsToEdit& parts);

// Sets the screenshot in a new part with the first free name ("/metadata/appScreenshot.1.png"),
// because PackageFacts::takenName is set; the part that has the usual name stays. Saves, and
// returns the new name.
std::string setScreenshotBeside(const FileName& file,
                                const appserialization::Screenshot& screenshot);

// Whether the package has any of the parts that an edit is to remove, the screenshot or signatures.
bool hasAny(const FileName& file, const PartsToEdit& removed);
// Removes the screenshot, the signatures or both with their relationships, and saves. Throws as
// requireEditable() does.
void removeParts(const FileName& file, const PartsToEdit& parts);

}  // namespace qzapp
