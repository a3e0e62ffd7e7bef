#pragma once

#include <appserialization/ustring.hpp>
#include <opc/PartKind.hpp>
#include <opc/PartName.hpp>

#include <vector>

#include "package/Layout.hpp"

namespace appserialization::layout {

// All kinds of parts that an app has at most once, in the form that the package library takes: the
// rows of kParts, and a kind of screenshot for each format.
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
