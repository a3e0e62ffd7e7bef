#pragma once

#include <string_view>

namespace qzapp::gallery {

// The content of the files in the folder "gallery", compiled in. The HTML files are fmt formats
// with named arguments. The cards replace the comment "<!-- apps -->" in the page.
extern const std::string_view kPage, kCard, kFailedCard, kStyle, kScript;

// Of a gallery in a folder. The two scripts are one in the page.
extern const std::string_view kFolderPage, kFolderStyle, kSearchScript, kFolderScript;

}  // namespace qzapp::gallery
