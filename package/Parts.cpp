#include "package/Parts.hpp"

#include <fl/filesystem.hpp>
#include <foundation/Shown.hpp>
#include <opc/Package.hpp>

#include <string>

#include "package/Layout.hpp"

namespace appserialization {

void requireScreenshotSize(const ustring& fileName, const opc::model::PartName& part,
                           std::uint64_t size) {
    if (size <= layout::kMaxScreenshotBytes) return;
    throw opc::model::PartTooLarge(foundation::shown(fl::filesystem::path(fileName)) + ": " +
                                   foundation::shown(part.toString()) + ": the screenshot has " +
                                   std::to_string(size) + " bytes, but may have at most " +
                                   std::to_string(layout::kMaxScreenshotBytes) +
                                   "; use a smaller image");
}

}  // namespace appserialization
