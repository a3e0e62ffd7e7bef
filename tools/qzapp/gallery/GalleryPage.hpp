#pragma once

#include <appserialization/AppMetadataReader.hpp>

#include <cstddef>
#include <string>

#include "app/Fields.hpp"

namespace qzapp {

// The pieces of the page that "gallery" makes, as HTML in which no text of an app is more than text.

struct PageFrame {
    std::string head, tail;
    std::size_t placeOfCount;  // in the head, with room for an appCount()
};
PageFrame pageFrame(const std::string& title);
std::string appCount(std::size_t apps);

std::string appCard(const std::string& file, const appserialization::AppMetadata& record,
                    const appserialization::Screenshot& screenshot);
std::string failedCard(const std::string& file, const std::string& reason);

}  // namespace qzapp
