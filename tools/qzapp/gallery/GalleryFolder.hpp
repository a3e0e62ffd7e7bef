#pragma once

#include <fl/FileDescriptor.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "app/FileName.hpp"
#include "app/PrivateFolder.hpp"
#include "tools/qzapp/cli/Cage.hpp"

namespace qzapp {

// The files of a gallery's folder: "index.html", "data/0001-5d02f8a1.js" and so on, and
// "pictures/3f/3f04….jpg".
namespace galleryfiles {
inline constexpr const char* kPage = "index.html";
inline constexpr const char* kData = "data";
inline constexpr const char* kPictures = "pictures";
// How many characters of a picture's name name its folder.
inline constexpr std::size_t kPictureFolder = 2;
}  // namespace galleryfiles

// Writes the folder of a gallery, all of it or nothing. Construct it, write() the files, then
// commit(), which puts the new folder in place. Until then it is a private folder beside that
// place. After a failure or a signal, everything is as it was. With `force`, an earlier gallery is
// replaced: a folder that holds nothing but files of galleries. All failures are Errors.
class GalleryFolder {
public:
    GalleryFolder(const FileName& folder, bool force);
    ~GalleryFolder();
    GalleryFolder(const GalleryFolder&) = delete;
    GalleryFolder& operator=(const GalleryFolder&) = delete;

    // The absolute path of the folder without links.
    const std::string& path() const noexcept { return path_; }
    // Allows in a cage what write() does.
    void allowIn(Cage& cage) const;
    // Makes a file, and the folders of its name if they are missing. Any thread may call it.
    void write(const std::string& name, std::string_view bytes) const;
    // Makes all files durable and puts them in place.
    void commit();

private:
    void openPlace();
    void putNew();
    void exchange();
    void requireSameGallery() const;

    FileName shown_;
    std::string path_, name_;  // name_ in place_
    fl::filesystem::FileDescriptor place_;
    fl::filesystem::FileDescriptor old_;  // the gallery that is replaced, if there is one
    std::optional<PrivateFolder> private_;
    bool isInPlace_ = false;
};

}  // namespace qzapp
