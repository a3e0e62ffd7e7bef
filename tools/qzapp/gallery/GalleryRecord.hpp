#pragma once

#include <appserialization/AppMetadata.hpp>

#include <functional>
#include <string>

#include "tools/qzapp/pictures/Picture.hpp"

namespace qzapp {

// What a gallery's folder shows of an app, or of a file or folder that cannot be read.
struct GalleryRecord {
    std::string file;  // as shown
    std::string link;  // from the folder of the gallery to the file; see linkTo()
    appserialization::AppMetadata metadata;
    std::string failure;  // why it cannot be read
    std::string picture;  // the name of its file in the folder of the gallery, or why there is none
    pictures::Size size, original;  // if there is a picture
};

// Where a gallery's records come from: a function that calls `take` with each of them, on its own thread.
using RecordSource = std::function<void(const std::function<void(const GalleryRecord&)>& take)>;

// A relative link to a file, of unreserved characters, "/" and percent-encoded bytes only, so nothing can
// take it for a scheme, a host, a query or a fragment. Both paths are absolute and without links.
std::string linkTo(const std::string& file, const std::string& fromFolder);

}  // namespace qzapp
