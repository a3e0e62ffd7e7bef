#pragma once

#include <foundation/Export.hpp>
#include <opc/Names.hpp>

namespace opc::qzservices {

PLATFORM_API model::ContentType getPNGContentType();
PLATFORM_API model::ContentType getJPEGContentType();
PLATFORM_API model::ContentType getGIFContentType();

}  // namespace opc::qzservices
