#include "tools/qzapp/catalogue/Pictures.hpp"

#include <variant>

#include "tools/qzapp/pictures/Picture.hpp"

namespace qzapp {

std::optional<PictureRow> Pictures::scaled(const std::string& sha256, std::string_view image) {
    {
        const std::lock_guard lock(mutex_);
        if (!known_.insert(sha256).second) return std::nullopt;
    }
    PictureRow row;
    row.sha256 = sha256;
    const auto result = scaler_->scale(image);
    if (const auto* refusal = std::get_if<pictures::Refusal>(&result)) {
        if (*refusal == pictures::Refusal::NotNow) return std::nullopt;
        row.reason = pictures::textOf(*refusal);
        return row;
    }
    const auto& picture = std::get<pictures::ScaledPicture>(result);
    row.mediaType = std::string(picture.mediaType);
    row.bytes = picture.bytes;
    row.width = picture.size.width;
    row.height = picture.size.height;
    row.originalWidth = picture.original.width;
    row.originalHeight = picture.original.height;
    return row;
}

}  // namespace qzapp
