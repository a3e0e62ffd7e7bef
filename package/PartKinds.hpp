#pragma once

#include <opc/PartKind.hpp>

#include <vector>

#include "package/Layout.hpp"

namespace appserialization::layout {

// The parts that an app has once or not at all, as the package library tells them apart. A screenshot
// has a kind for each format.
inline std::vector<opc::model::PartKind> partKinds() {
    std::vector<opc::model::PartKind> kinds;
    for (const opc::model::PartKindRow& part : kParts)
        kinds.push_back(part.kind());
    for (const ScreenshotFormatRow& format : kScreenshotFormats) {
        kinds.push_back({"the app's screenshot", kScreenshotRelationship,
                         opc::model::PartName(ustring(kScreenshotNameStem) + format.extension),
                         format.contentType()});
    }
    return kinds;
}

}  // namespace appserialization::layout
