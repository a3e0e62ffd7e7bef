#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "tools/qzapp/pictures/Picture.hpp"
#include "tools/qzapp/pictures/Raster.hpp"

namespace qzapp::pictures {

// Thrown by the functions below.
struct Refused : std::exception {
    explicit Refused(Refusal why) : refusal(why) {}
    const char* what() const noexcept override { return "the image is refused"; }
    Refusal refusal;
};

struct Decoded {
    Raster raster;  // at least as large as the picture that fits into the box
    Size original;
};

// Decodes a PNG, JPEG or GIF, of a GIF the first frame. Compares the size that the image claims
// with the limits before any memory is taken for it. The bytes may come from anyone, so call it
// only in a process that can do no harm. Throws Refused or std::bad_alloc.
Decoded decode(std::string_view bytes, Size box);

struct Encoded {
    std::string bytes;
    std::string_view mediaType;
};
// PNG keeps what is transparent, and every pixel; JPEG makes smaller files.
Encoded encodePng(const Raster& raster);
Encoded encodeJpeg(const Raster& raster);

// All of it: decodes an image and makes a picture of it that fits into the box.
ScaledPicture scaleHere(std::string_view bytes, Size box);

}  // namespace qzapp::pictures
