#include "app/ScreenshotFormats.hpp"

#include <fl/i18n.hpp>

#include <algorithm>

#include "app/Errors.hpp"
#include "package/Layout.hpp"

namespace qzapp {
namespace {

using foundation::ustring;
using foundation::ustring_view;

using appserialization::layout::kScreenshotFormats;
using appserialization::layout::ScreenshotFormatRow;

}  // namespace

bool isPackagedFormat(ustring_view format) {
    const ustring lower = fl::i18n::to_lower(format);
    return std::ranges::any_of(
        kScreenshotFormats, [&](const ScreenshotFormatRow& row) { return lower == row.extension; });
}

ustring screenshotFormatOf(const FileName& image) {
    const ustring name = image.path.filename();
    const std::size_t dot = name.rfind(u'.');
    ustring format = dot == ustring::npos ? ustring() : name.substr(dot + 1);
    if (isPackagedFormat(format)) return format;
    throw Error(image.shown,
                "expected an image whose name ends in .png, .jpg, .jpeg or .gif; convert it first");
}

}  // namespace qzapp
