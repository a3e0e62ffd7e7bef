#include <fmt/format.h>
#include <fl/i18n.hpp>

#include <string>
#include <string_view>

#include "app/DoubtfulValues.hpp"
#include "app/ScreenshotFormats.hpp"
#include "app/check/Checks.hpp"
#include "app/check/Findings.hpp"

namespace qzapp {

void checkImage(const std::string& part, std::string_view format, std::string_view bytes,
                const std::string& fix, Findings& findings) {
    if (packagedType(fl::i18n::utf8_to_ustring(format)) == nullptr) {
        findings.add("screenshot-format", part,
                     fmt::format("the format is \"{}\", which a packaged app cannot hold", format),
                     fix);
    } else if (const auto doubt = doubtAboutImage(format, bytes)) {
        findings.add("screenshot-bytes", part, *doubt, fix);
    }
    if (const auto doubt = doubtAboutWholeness(bytes))
        findings.add("screenshot-cut", part, *doubt, fix);
}

}  // namespace qzapp
