#include "tools/qzapp/gallery/GalleryPictures.hpp"

#include <fmt/format.h>

#include <cstddef>
#include <variant>

#include "app/Sha256.hpp"

namespace qzapp {
namespace {

// As many hexadecimal digits as tell any number of pictures apart.
constexpr std::size_t kNameLength = 32;

std::string nameOf(const pictures::ScaledPicture& picture) {
    const std::string hash = sha256Hex(picture.bytes).substr(0, kNameLength);
    return fmt::format("{}/{}/{}.{}", galleryfiles::kPictures,
                       hash.substr(0, galleryfiles::kPictureFolder), hash,
                       picture.mediaType == "image/png" ? "png" : "jpg");
}

}  // namespace

std::string notShown(const std::string& reason) {
    return "The screenshot is not shown: " + reason;
}

void GalleryPictures::add(const pictures::ScaledPicture& picture, GalleryRecord& record) {
    record.picture = nameOf(picture);
    record.size = picture.size;
    record.original = picture.original;
    {
        const std::lock_guard lock(mutex_);
        if (!written_.insert(record.picture).second) return;
    }
    folder_->write(record.picture, picture.bytes);
}

void GalleryPictures::scale(std::string_view screenshot, pictures::PictureScaler& scaler,
                            GalleryRecord& record) {
    if (screenshot.empty()) return;
    const std::string hash = sha256Hex(screenshot);
    {
        const std::lock_guard lock(mutex_);
        if (const auto found = known_.find(hash); found != known_.end()) {
            record.picture = found->second.picture;
            record.size = found->second.size;
            record.original = found->second.original;
            return;
        }
    }
    const auto result = scaler.scale(screenshot);
    if (const auto* refusal = std::get_if<pictures::Refusal>(&result)) {
        record.picture = notShown(pictures::textOf(*refusal));
        if (*refusal == pictures::Refusal::NotNow) ++unscaled_;
    } else {
        add(std::get<pictures::ScaledPicture>(result), record);
    }
    const std::lock_guard lock(mutex_);
    known_.emplace(hash, Place{record.picture, record.size, record.original});
}

}  // namespace qzapp
