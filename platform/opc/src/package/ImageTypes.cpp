#include <opc/ImageTypes.hpp>

#include <foundation/ustring.hpp>

namespace opc {

namespace {

bool isOf(const ImageType& type, std::string_view bytes) {
    return bytes.starts_with(type.signature) && bytes.size() >= type.markAt &&
           bytes.substr(type.markAt).starts_with(type.mark);
}

}  // namespace

model::ContentType ImageType::contentType() const {
    return model::ContentType(foundation::ustring(mediaType.begin(), mediaType.end()));
}

const ImageType* imageTypeOf(std::string_view bytes) {
    const auto* const found =
        std::ranges::find_if(kImageTypes, [&](const ImageType& type) { return isOf(type, bytes); });
    return found == kImageTypes.end() ? nullptr : found;
}

}  // namespace opc

namespace opc::qzservices {

model::ContentType getPNGContentType() {
    return imageType("png")->contentType();
}

model::ContentType getJPEGContentType() {
    return imageType("jpg")->contentType();
}

model::ContentType getGIFContentType() {
    return imageType("gif")->contentType();
}

}  // namespace opc::qzservices
