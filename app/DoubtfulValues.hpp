#pragma once

#include <foundation/ustring.hpp>

#include <optional>
#include <string>
#include <string_view>

#include "app/FieldValues.hpp"
#include "app/Packaging.hpp"

namespace qzapp {

// Readers take any text for any field, and any bytes for a screenshot. These functions find what is
// probably a mistake. Front ends warn of it when it is set, and the checks note it.

// What is odd about a field's value, as a sentence: `Uuid "x" is not a UUID`. Nothing if it makes
// sense or is empty.
std::optional<std::string> doubtAbout(Field field, foundation::ustring_view value);

// What is odd about the bytes of an image whose name ends in `format`, a format that a packaged app
// can hold: "its bytes are not a png image".
std::optional<std::string> doubtAboutImage(std::string_view format, std::string_view bytes);

// Whether an image, whose kind its first bytes tell, is whole: "the image has no end; after 60
// bytes it seems cut off". Nothing if it is, or if it is no image.
std::optional<std::string> doubtAboutWholeness(std::string_view bytes);

// Warns of each odd value that `content` has.
void warnOfDoubts(const Content& content);

}  // namespace qzapp
