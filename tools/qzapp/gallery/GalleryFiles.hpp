#pragma once

#include <string_view>

namespace qzapp::gallery {

// The files in the folder "gallery". The HTML ones are formats of fmt with named arguments; a comment
// "<!-- apps -->" in the page is where the cards go.
extern const std::string_view kPage, kCard, kFailedCard, kStyle, kScript;

}  // namespace qzapp::gallery
