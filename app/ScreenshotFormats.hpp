#pragma once

#include <foundation/ustring.hpp>
#include <opc/ImageTypes.hpp>

#include <string>
#include <string_view>

#include "app/FileName.hpp"

namespace qzapp {

// The type of image that a format ("png", in any case) stands for in a packaged app; null when a
// packaged app cannot hold it.
const opc::ImageType* packagedType(foundation::ustring_view format);

// Whether a packaged app can say that its screenshot has this format ("png", in any case).
bool isPackagedFormat(foundation::ustring_view format);

// The format that an image's extension names. Throws Error when a packaged app cannot hold it: the
// library would call it PNG.
foundation::ustring screenshotFormatOf(const FileName& image);

// The formats that a packaged app can hold, for people: "png, jpg, jpeg or gif". Each has `before` in
// front, and `lastly` stands before the last one.
std::string packagedFormats(std::string_view before = "", std::string_view lastly = " or ");

}  // namespace qzapp
