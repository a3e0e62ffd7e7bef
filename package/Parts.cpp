#include "package/Parts.hpp"

#include <fl/i18n.hpp>

#include <string>

#include "package/Layout.hpp"

namespace appserialization {

void requireScreenshotSize(const ustring& fileName, const opc::model::PartName& part,
                           std::uint64_t size) {
    if (size <= layout::kMaxScreenshotBytes) return;
    throw opc::model::PartTooLarge(
        fl::i18n::to_display(fileName) + ": " + fl::i18n::to_display(part.toString()) +
        ": a screenshot of " + std::to_string(size) + " bytes; it may have at most " +
        std::to_string(layout::kMaxScreenshotBytes) + "; use a smaller image");
}

}  // namespace appserialization
