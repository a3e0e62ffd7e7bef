#pragma once

#include <appserialization/AppMetadataReader.hpp>
#include <foundation/ustring.hpp>
#include <opc/ImageTypes.hpp>

#include <string>
#include <string_view>

#include "app/FileName.hpp"

namespace qzapp {

// The image type of a screenshot format ("png", in any case); null if a packaged app cannot hold
// that format.
const opc::ImageType* packagedType(foundation::ustring_view format);

// Whether a packaged app can hold a screenshot of this format ("png", in any case).
bool isPackagedFormat(foundation::ustring_view format);

// The format of an image: the extension of its name, in the case of the name, if that is a format
// that a packaged app can hold; otherwise what its first bytes say, as for one from a pipe. Throws
// Error if a packaged app cannot hold that either, because the library would store the image as
// PNG.
foundation::ustring screenshotFormatOf(const FileName& image, std::string_view bytes);

// The image in a file, in the format that screenshotFormatOf() returns. Throws Error as that does,
// and if the file cannot be read or is larger than an app's screenshot may be.
appserialization::Screenshot readImage(const FileName& image);

// The formats that a packaged app can hold, for messages: "png, jpg, jpeg or gif". `before` is put
// in front of each format, `lastly` between the last two.
std::string packagedFormats(std::string_view before = "", std::string_view lastly = " or ");

}  // namespace qzapp
