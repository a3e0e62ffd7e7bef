#pragma once

#include <atomic>
#include <cstddef>
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

// What a record says instead of a picture.
std::string notShown(const std::string& reason);

// The pictures of a gallery's folder. Equal screenshots are scaled once, and equal pictures stored
// once. Any thread may call its functions.
class GalleryPictures {
public:
    explicit GalleryPictures(const GalleryFolder& folder) : folder_(&folder) {}

    // Scales a screenshot, and gives the record its picture or the reason why there is none.
    void scale(std::string_view screenshot, pictures::PictureScaler& scaler, GalleryRecord& record);
    // Gives the record a picture that has been scaled before.
    void add(const pictures::ScaledPicture& picture, GalleryRecord& record);
    // How many screenshots could not be scaled now.
    std::size_t unscaled() const noexcept { return unscaled_; }

private:
    struct Place {
        std::string picture;
        pictures::Size size, original;
    };

    const GalleryFolder* folder_;
    std::atomic<std::size_t> unscaled_ = 0;
    std::mutex mutex_;
    std::map<std::string, Place> known_;  // by the hash of the screenshot
    std::set<std::string> written_;
};

}  // namespace qzapp
