#include "app/ScreenshotFormats.hpp"

#include <fmt/format.h>
#include <fl/i18n.hpp>

#include <algorithm>
#include <cstddef>

#include "app/Error.hpp"
#include "app/InputFiles.hpp"
#include "package/Layout.hpp"

namespace qzapp {
namespace {

using foundation::ustring;
using foundation::ustring_view;

using appserialization::layout::kScreenshotFormats;
using appserialization::layout::ScreenshotFormatRow;

}  // namespace

const opc::ImageType* packagedType(ustring_view format) {
    const ustring lower = fl::i18n::to_lower(format);
    const auto found =
        std::ranges::find(kScreenshotFormats, lower, &ScreenshotFormatRow::extension);
    return found == kScreenshotFormats.end() ? nullptr : found->type;
}

bool isPackagedFormat(ustring_view format) {
    return packagedType(format) != nullptr;
}

ustring screenshotFormatOf(const FileName& image, std::string_view bytes) {
    const ustring name = image.path.filename();
    const std::size_t dot = name.rfind(u'.');
    ustring format = dot == ustring::npos ? ustring() : name.substr(dot + 1);
    if (isPackagedFormat(format)) return format;
    const opc::ImageType* const type = opc::imageTypeOf(bytes);
    if (type != nullptr) format = fl::i18n::utf8_to_ustring(type->format);
    if (isPackagedFormat(format)) return format;
    if (type != nullptr) {
        throw Error(image.shown, fmt::format("is {}, and a packaged app holds {}; convert it first",
                                             type->name, packagedFormats()));
    }
    throw Error(
        image.shown,
        fmt::format(
            "neither its name nor its first bytes are those of an image in one of the formats "
            "{}; convert it first",
            packagedFormats("", " and ")));
}

appserialization::Screenshot readImage(const FileName& image) {
    const std::string bytes = readBytes(image, kMaxContentBytes);
    return {screenshotFormatOf(image, bytes), {bytes.begin(), bytes.end()}};
}

std::string packagedFormats(std::string_view before, std::string_view lastly) {
    std::string list;
    for (const ScreenshotFormatRow& row : kScreenshotFormats) {
        const bool isLast = &row == &kScreenshotFormats.back();
        if (!list.empty()) list += isLast ? lastly : ", ";
        list.append(before).append(fl::i18n::ustring_to_utf8(row.extension));
    }
    return list;
}

}  // namespace qzapp
