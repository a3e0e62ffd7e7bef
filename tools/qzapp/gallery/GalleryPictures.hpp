#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

#include "tools/qzapp/gallery/GalleryFolder.hpp"
#include "tools/qzapp/gallery/GalleryRecord.hpp"
#include "tools/qzapp/pictures/Picture.hpp"
#include "tools/qzapp/pictures/PictureScaler.hpp"

namespace qzapp {

// The pictures of a gallery's folder. Equal screenshots are scaled once, and equal pictures stored once. Any
// thread may call its functions.
class GalleryPictures {
public:
    GalleryPictures(pictures::PictureScaler& scaler, const GalleryFolder& folder)
        : scaler_(&scaler), folder_(&folder) {}

    // Scales a screenshot, and gives the record its picture or the reason why there is none.
    void add(std::string_view screenshot, GalleryRecord& record);
    // Gives the record a picture that has been scaled before.
    void add(const pictures::ScaledPicture& picture, GalleryRecord& record);

private:
    struct Place {
        std::string picture;
        pictures::Size size, original;
    };

    pictures::PictureScaler* scaler_;
    const GalleryFolder* folder_;
    std::mutex mutex_;
    std::map<std::string, Place> known_;  // by the hash of the screenshot
    std::set<std::string> written_;
};

}  // namespace qzapp
