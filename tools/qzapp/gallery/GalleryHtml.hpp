#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/AppMetadataReader.hpp>

#include <cstddef>
#include <string>
#include <string_view>

namespace qzapp {

// The pieces of the page that "gallery" writes: head, cards, tail. All are HTML in which text from
// an app or a file name is escaped, so it cannot become markup or script.

// Text as HTML, for any place in it, including quoted attribute values.
std::string htmlText(std::string_view text);

struct PageFrame {
    std::string head, tail;
    std::size_t placeOfCount;  // offset in the head at which an appCount() is to be written
};
PageFrame pageFrame(const std::string& title);
// "12 apps", padded to the same length for any number.
std::string appCount(std::size_t apps);

// The card of an app, with its screenshot; `file` is shown as its file name.
std::string appCard(const std::string& file, const appserialization::AppMetadata& record,
                    const appserialization::Screenshot& screenshot);
// The card of a file or folder that cannot be read.
std::string failedCard(const std::string& file, const std::string& reason);

}  // namespace qzapp
