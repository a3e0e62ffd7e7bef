#include "tools/qzapp/gallery/GalleryHtml.hpp"

#include <fmt/format.h>
#include <nettle/base64.h>
#include <appserialization/ustring.hpp>
#include <fl/i18n.hpp>
#include <opc/ImageTypes.hpp>

#include <array>
#include <cstdint>
#include <variant>
#include <vector>

#include "app/FieldValues.hpp"
#include "app/SafeImage.hpp"
#include "app/Sha256.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/gallery/GalleryFiles.hpp"

namespace qzapp {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::string_view kPlaceOfApps = "<!-- apps -->\n";
// Wide enough for any count. Browsers do not show the blanks that pad it.
constexpr std::size_t kCountWidth = 32;
constexpr std::array kDetails = {
    Field::Description,   Field::RequiredProducts, Field::MinimumSupportedKORVALRelease,
    Field::KORVALRelease, Field::AppType,          Field::Uuid,
};

std::string base64(const Bytes& bytes) {
    std::string text(BASE64_ENCODE_RAW_LENGTH(bytes.size()), '\0');
    base64_encode_raw(text.data(), bytes.size(), bytes.data());
    return text;
}

std::string noPicture(const std::string& reason) {
    return fmt::format("<div class=\"picture none\">{}</div>", htmlText(reason));
}

// The image type comes from the bytes, not from the format that the app gives.
std::string pictureOf(const std::string& name, const appserialization::Screenshot& screenshot) {
    const Bytes& bytes = screenshot.second;
    if (bytes.empty()) return noPicture("No screenshot");
    const opc::ImageType* const type =
        opc::imageTypeOf({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    if (type == nullptr) return noPicture("The screenshot is not an image that browsers show");
    // The page may hold a thousand screenshots.
    if (bytes.size() > kMaxPictureBytes) {
        return noPicture(fmt::format("The screenshot of {} is too large for this page",
                                     byteCount(bytes.size())));
    }
    return fmt::format(
        "<img class=\"picture\" loading=\"lazy\" decoding=\"async\" alt=\"Screenshot of {}\" "
        "src=\"data:{};base64,{}\">",
        htmlText(name), type->mediaType, base64(bytes));
}

std::string textOf(const FieldValue& value) {
    if (const auto* text = std::get_if<ustring>(&value)) return fl::i18n::to_display(*text);
    std::string lines;
    for (const ustring& item : std::get<List>(value))
        lines += (lines.empty() ? "" : "\n") + fl::i18n::to_display(item);
    return lines;
}

std::string detailsOf(const appserialization::AppMetadata& record) {
    std::string details;
    for (const Field field : kDetails) {
        const std::string text = textOf(valueOf(record, field));
        if (text.empty()) continue;
        details +=
            fmt::format("<dt>{}</dt><dd dir=\"auto\">{}</dd>", nameOf(field), htmlText(text));
    }
    return details;
}

// The heading of an app without a name.
std::string stemOf(const std::string& file) {
    const std::string name = file.substr(file.rfind('/') + 1);
    return name.substr(0, name.rfind('.'));
}

}  // namespace

std::string htmlText(std::string_view text) {
    std::string escaped;
    for (const char c : visibleText(text)) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&#39;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

std::string appCount(std::size_t apps) {
    const std::string text = fmt::format("{} {}", apps, apps == 1 ? "app" : "apps");
    return fmt::format("{:{}}", text, kCountWidth);
}

PageFrame pageFrame(const std::string& title) {
    using namespace gallery;
    const std::string page = fmt::format(
        fmt::runtime(kPage), fmt::arg("title", htmlText(title)), fmt::arg("style", kStyle),
        fmt::arg("styleHash", sha256Base64(kStyle)), fmt::arg("script", kScript),
        fmt::arg("scriptHash", sha256Base64(kScript)), fmt::arg("count", appCount(0)));
    const std::size_t place = page.rfind(kPlaceOfApps);
    return {page.substr(0, place), page.substr(place + kPlaceOfApps.size()),
            page.rfind(appCount(0), place)};
}

std::string appCard(const std::string& file, const appserialization::AppMetadata& record,
                    const appserialization::Screenshot& screenshot) {
    const auto text = [&](Field field) { return textOf(valueOf(record, field)); };
    std::string name = text(Field::Name);
    if (name.empty()) name = stemOf(file);
    return fmt::format(
        fmt::runtime(gallery::kCard), fmt::arg("picture", pictureOf(name, screenshot)),
        fmt::arg("name", htmlText(name)), fmt::arg("author", htmlText(text(Field::Author))),
        fmt::arg("version", htmlText(text(Field::Version))),
        fmt::arg("summary", htmlText(text(Field::Summary))), fmt::arg("details", detailsOf(record)),
        fmt::arg("file", htmlText(file)));
}

std::string failedCard(const std::string& file, const std::string& reason) {
    return fmt::format(fmt::runtime(gallery::kFailedCard), fmt::arg("file", htmlText(file)),
                       fmt::arg("reason", htmlText(reason)));
}

}  // namespace qzapp
