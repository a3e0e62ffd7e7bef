#include <fmt/format.h>
#include <fl/i18n.hpp>
#include <opc/ImageTypes.hpp>

#include <cstddef>
#include <string>
#include <string_view>

#include "app/FileName.hpp"
#include "app/Forms.hpp"
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
    if (&type != opc::imageType("png")) return false;
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

void checkImage(const FileName& file, const std::string& part, string_view format,
                string_view bytes, Findings& findings) {
    const bool isText = file.native().ends_with(kTextExtension);
    const std::string fix = isText
                                ? "set a whole image as the app's screenshot in its editor"
                                : fmt::format("qzapp edit {} --screenshot IMAGE", shellWord(file));
    const ImageType* kind = opc::imageTypeOf(bytes);
    const ImageType* meant = packagedType(fl::i18n::utf8_to_ustring(format));
    if (meant == nullptr) {
        findings.add("screenshot-format", part,
                     fmt::format("the format is \"{}\", which a packaged app cannot hold", format),
                     fix);
    } else if (kind == nullptr) {
        findings.add("screenshot-bytes", part,
                     bytes.empty() ? "the image is empty"
                                   : fmt::format("its bytes are not a {} image", format),
                     fix);
    } else if (kind->format != meant->format) {
        findings.add(
            "screenshot-bytes", part,
            fmt::format("is declared as {}, but its bytes are a {} image", format, kind->format),
            fix);
    }
    if (kind != nullptr) checkWhole(*kind, part, bytes, fix, findings);
}

}  // namespace qzapp
