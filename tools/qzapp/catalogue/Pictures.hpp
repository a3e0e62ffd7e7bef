#pragma once

#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "tools/qzapp/catalogue/Entry.hpp"
#include "tools/qzapp/pictures/PictureScaler.hpp"

namespace qzapp {

// Scales the screenshots of a run, equal ones once.
class Pictures {
public:
    // `known` are the hashes of the images that the catalogue has pictures of.
    Pictures(pictures::PictureScaler& scaler, std::set<std::string> known)
        : scaler_(&scaler), known_(std::move(known)) {}

    // Nothing if the picture is known, the same image was given before, or it cannot be scaled now.
    // Any thread may call it.
    std::optional<PictureRow> scaled(const std::string& sha256, std::string_view image);

private:
    pictures::PictureScaler* scaler_;
    std::mutex mutex_;
    std::set<std::string> known_;
};

}  // namespace qzapp
