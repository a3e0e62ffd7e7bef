#pragma once

#include <appserialization/AppMetadata.hpp>

#include <functional>
#include <string>

#include "tools/qzapp/gallery/GalleryFolder.hpp"
#include "tools/qzapp/pictures/Picture.hpp"
#include "tools/qzapp/pictures/PictureScaler.hpp"

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

// Where a gallery's records come from: a function that calls `take` with each of them, on its own
// thread.
using RecordSource = std::function<void(const std::function<void(const GalleryRecord&)>& take)>;

// The card of an app, or of a file or folder that cannot be read, on a page.
struct Card {
    std::string html;
    bool isApp = true;
};

// Where the cards of a page come from, like RecordSource.
using CardSource = std::function<void(const std::function<void(const Card&)>& take)>;

// The apps that a gallery shows.
class GalleryApps {
public:
    GalleryApps() = default;
    virtual ~GalleryApps() = default;
    GalleryApps(const GalleryApps&) = delete;
    GalleryApps& operator=(const GalleryApps&) = delete;

    // The functions that these return refer to this object and the parameters.
    virtual CardSource cards() const = 0;
    // For a gallery in `folder`, to which the pictures are written; they are made with `scaler` if
    // need be.
    virtual RecordSource records(const GalleryFolder& folder,
                                 pictures::PictureScaler& scaler) const = 0;
};

// A relative link to a file, of unreserved characters, "/" and percent-encoded bytes only, so
// nothing can take it for a scheme, a host, a query or a fragment. Both paths are absolute and
// without links.
std::string linkTo(const std::string& file, const std::string& fromFolder);

}  // namespace qzapp
