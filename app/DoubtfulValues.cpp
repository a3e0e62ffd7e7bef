#include "app/DoubtfulValues.hpp"

#include <fmt/format.h>
#include <appserialization/ustring.hpp>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>
#include <opc/ImageTypes.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <variant>

#include "app/ScreenshotFormats.hpp"
#include "app/VisibleText.hpp"
#include "app/Warnings.hpp"
#include "package/Layout.hpp"

namespace qzapp {
namespace {

using foundation::ustring_view;
using namespace std::string_view_literals;

// What hosts make of a screenshot: they take one, have one, or show none.
constexpr std::array<ustring_view, 3> kModes = {u"auto", u"manual", u"none"};

// Whether the text has the form of `pattern`, in which "0" stands for a digit, "x" for a
// hexadecimal digit in any case, "b" for "a" or "b", and everything else for itself.
bool hasForm(ustring_view text, std::string_view pattern) {
    const auto isMeant = [](char16_t c, char meant) {
        const bool isDigit = c >= u'0' && c <= u'9';
        if (meant == '0') return isDigit;
        if (meant == 'x') return isDigit || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
        if (meant == 'b') return c == u'a' || c == u'b';
        return c == static_cast<char16_t>(meant);
    };
    return std::ranges::equal(text, pattern, isMeant);
}

// What the value of a field should be; empty if it is that.
std::string expectedInstead(Field field, ustring_view value) {
    switch (field) {
        case Field::ScreenshotMode:
            return std::ranges::find(kModes, value) != kModes.end() ? "" : "auto, manual or none";
        case Field::KVPKGVersion:
            return value == appserialization::layout::kKVPKGVersion.defaultText
                       ? ""
                       : "1, the version of the format";
        case Field::Uuid:
            return hasForm(value, "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx") ? "" : "a UUID";
        case Field::MinimumSupportedKORVALRelease:
        case Field::KORVALRelease:
            return hasForm(value, "R0000b") ? "" : "a release, such as R2026b";
        default:
            return "";
    }
}

// A PNG has its width and height, four bytes each, from offset 16 to 24.
constexpr std::size_t kPngSizesAt = 16, kPngSizesEnd = 24;

bool hasNoSize(const opc::ImageType& type, std::string_view bytes) {
    if (type.format != opc::imageType("png")->format) return false;
    if (bytes.size() < kPngSizesEnd) return true;
    constexpr std::string_view kZero = "\0\0\0\0"sv;
    return bytes.substr(kPngSizesAt, 4) == kZero || bytes.substr(kPngSizesAt + 4, 4) == kZero;
}

// Some programs add white space or padding after the end of an image.
constexpr std::size_t kMaxBehindEnd = 64;

bool hasEnd(const opc::ImageType& kind, std::string_view bytes) {
    const std::size_t at = bytes.rfind(kind.end);
    return at != std::string_view::npos && bytes.size() - at <= kind.end.size() + kMaxBehindEnd;
}

void warnOf(const std::optional<std::string>& doubt) {
    if (doubt) warn("warning: " + *doubt);
}

}  // namespace

std::optional<std::string> doubtAbout(Field field, ustring_view value) {
    if (value.empty()) return std::nullopt;
    const std::string expected = expectedInstead(field, value);
    if (expected.empty()) return std::nullopt;
    return fmt::format("{} \"{}\" is not {}", nameOf(field), foundation::shown(value), expected);
}

std::optional<std::string> doubtAboutImage(std::string_view format, std::string_view bytes) {
    const opc::ImageType* const meant = packagedType(fl::i18n::utf8_to_ustring(format));
    const opc::ImageType* const kind = opc::imageTypeOf(bytes);
    if (kind == nullptr) {
        return bytes.empty() ? "the image is empty"
                             : fmt::format("its bytes are not a {} image", format);
    }
    if (meant == nullptr || kind->format == meant->format) return std::nullopt;
    return fmt::format("is declared as {}, but its bytes are a {} image", format, kind->format);
}

std::optional<std::string> doubtAboutWholeness(std::string_view bytes) {
    const opc::ImageType* const kind = opc::imageTypeOf(bytes);
    if (kind == nullptr) return std::nullopt;
    if (hasNoSize(*kind, bytes)) return "the image has no width or no height";
    if (hasEnd(*kind, bytes)) return std::nullopt;
    return fmt::format("the image has no end; after {} it seems cut off", byteCount(bytes.size()));
}

void warnOfDoubts(const Content& content) {
    for (const auto& [field, value] : content.fields) {
        if (const auto* text = std::get_if<ustring>(&value)) warnOf(doubtAbout(field, *text));
    }
    if (!content.screenshot) return;
    const auto& [format, bytes] = *content.screenshot;
    const std::string_view image(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const auto name = fl::i18n::to_display(fl::i18n::to_lower(format));
    for (const auto& doubt : {doubtAboutImage(name, image), doubtAboutWholeness(image)}) {
        if (doubt) warnOf("the screenshot: " + *doubt);
    }
}

}  // namespace qzapp
