#pragma once

#include <foundation/ustring.hpp>

#include "app/FileName.hpp"

namespace qzapp {

// Whether a packaged app can say that its screenshot has this format ("png", in any case).
bool isPackagedFormat(foundation::ustring_view format);

// The format that an image's extension names. Throws Error when a packaged app cannot hold it: the
// library would call it PNG.
foundation::ustring screenshotFormatOf(const FileName& image);

}  // namespace qzapp
