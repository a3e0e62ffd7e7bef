#pragma once

#include <foundation/Export.hpp>
#include <opc/PartName.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace opc {

// A kind of image: its names, and the bytes by which it is recognised.
struct ImageType {
    std::string_view format;     // "png", which is also the usual extension
    std::string_view mediaType;  // "image/png"
    const char* name;            // for messages: "a PNG image"
    std::string_view signature;  // its first bytes
    std::string_view mark;       // further bytes, at `markAt`, if the first ones are not enough
    std::size_t markAt;
    std::string_view end;  // its last bytes if they are always the same, otherwise empty

    PLATFORM_API model::ContentType contentType() const;
};

// The kinds of images that browsers show. A kind whose files begin in several ways has a row for
// each. Compare kinds by their formats, not by their addresses: each shared object has a table of
// its own.
inline constexpr std::array kImageTypes = {
    ImageType{"png", "image/png", "a PNG image", "\x89PNG\r\n\x1A\n", "", 0,
              "IEND\xAE\x42\x60\x82"},
    ImageType{"jpg", "image/jpeg", "a JPEG image", "\xFF\xD8\xFF", "", 0, "\xFF\xD9"},
    ImageType{"gif", "image/gif", "a GIF image", "GIF87a", "", 0, ";"},
    ImageType{"gif", "image/gif", "a GIF image", "GIF89a", "", 0, ";"},
    ImageType{"webp", "image/webp", "a WebP image", "RIFF", "WEBP", 8, ""},
};

// The first row of a format, such as imageType("png"). An unknown format does not compile.
consteval const ImageType* imageType(std::string_view format) {
    const auto* const found = std::ranges::find(kImageTypes, format, &ImageType::format);
    if (found == kImageTypes.end()) throw "there is no such image type";
    return found;
}

// The row of kImageTypes for an image by its first bytes, or null if it is of none of these kinds.
PLATFORM_API const ImageType* imageTypeOf(std::string_view bytes);

}  // namespace opc

namespace opc::qzservices {

// The content types of parts that hold such an image.
PLATFORM_API model::ContentType getPNGContentType();
PLATFORM_API model::ContentType getJPEGContentType();
PLATFORM_API model::ContentType getGIFContentType();

}  // namespace opc::qzservices
