#include <fmt/format.h>
#include <fl/i18n.hpp>
#include <opc/ImageTypes.hpp>

#include <cstddef>
#include <string>
#include <string_view>

#include "app/DoubtfulValues.hpp"
#include "app/ScreenshotFormats.hpp"
#include "app/VisibleText.hpp"
#include "app/check/Checks.hpp"
#include "app/check/Findings.hpp"

namespace qzapp {
namespace {

using opc::ImageType;
using std::string_view;
using namespace std::string_view_literals;

// A PNG has its width and height, four bytes each, from offset 16 to 24.
constexpr std::size_t kPngSizesAt = 16, kPngSizesEnd = 24;

bool hasNoSize(const ImageType& type, string_view bytes) {
    if (type.format != opc::imageType("png")->format) return false;
    if (bytes.size() < kPngSizesEnd) return true;
    constexpr string_view kZero = "\0\0\0\0"sv;
    return bytes.substr(kPngSizesAt, 4) == kZero || bytes.substr(kPngSizesAt + 4, 4) == kZero;
}

// Some programs add white space or padding after the end of an image.
constexpr std::size_t kMaxBehindEnd = 64;

bool hasEnd(const ImageType& kind, string_view bytes) {
    const std::size_t at = bytes.rfind(kind.end);
    return at != string_view::npos && bytes.size() - at <= kind.end.size() + kMaxBehindEnd;
}

void checkWhole(const ImageType& kind, const std::string& part, string_view bytes,
                const std::string& fix, Findings& findings) {
    if (hasNoSize(kind, bytes)) {
        findings.add("screenshot-cut", part, "the image has no width or no height", fix);
    } else if (!hasEnd(kind, bytes)) {
        findings.add(
            "screenshot-cut", part,
            fmt::format("the image has no end; after {} it seems cut off", byteCount(bytes.size())),
            fix);
    }
}

}  // namespace

void checkImage(const std::string& part, string_view format, string_view bytes,
                const std::string& fix, Findings& findings) {
    if (packagedType(fl::i18n::utf8_to_ustring(format)) == nullptr) {
        findings.add("screenshot-format", part,
                     fmt::format("the format is \"{}\", which a packaged app cannot hold", format),
                     fix);
    } else if (const auto doubt = doubtAboutImage(format, bytes)) {
        findings.add("screenshot-bytes", part, *doubt, fix);
    }
    const ImageType* const kind = opc::imageTypeOf(bytes);
    if (kind != nullptr) checkWhole(*kind, part, bytes, fix, findings);
}

}  // namespace qzapp
