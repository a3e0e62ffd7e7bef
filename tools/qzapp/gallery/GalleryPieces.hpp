#pragma once

#include <fl/FileDescriptor.hpp>

#include <cstddef>
#include <string>

#include "tools/qzapp/gallery/GalleryFolder.hpp"
#include "tools/qzapp/gallery/GalleryRecord.hpp"

namespace qzapp {

// Writes the page and the data of a gallery's folder, and returns the number of apps that could be
// read. The apps are in the order of their names, in pieces of a few hundred kilobytes that the
// page loads as it needs them. They wait in `scratch`, a file from makeGalleryScratch(), so memory
// holds little more than their names.
std::size_t writeGallery(const GalleryFolder& folder, fl::filesystem::FileDescriptor scratch,
                         const std::string& title, const RecordSource& source);
// To be called before a cage is entered.
fl::filesystem::FileDescriptor makeGalleryScratch();

}  // namespace qzapp
