#include <opc/ImageTypes.hpp>

namespace opc::qzservices {

model::ContentType getPNGContentType() {
    return model::ContentType(u"image/png");
}

model::ContentType getJPEGContentType() {
    return model::ContentType(u"image/jpeg");
}

model::ContentType getGIFContentType() {
    return model::ContentType(u"image/gif");
}

}  // namespace opc::qzservices
