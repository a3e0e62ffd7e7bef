#include "tools/qzapp/Arguments.hpp"

#include <fmt/format.h>
#include <appserialization/Functions.hpp>
#include <fl/i18n.hpp>

#include "tools/qzapp/Errors.hpp"
#include "tools/qzapp/Forms.hpp"

namespace qzapp {

foundation::ustring textArgument(const std::string& option, const std::string& value) {
    try {
        return fl::i18n::utf8_to_ustring_strict(value);
    } catch (const fl::i18n::ConversionError& e) {
        throw UsageError(
            option, fmt::format("\"{}\" is not valid UTF-8 at byte {}; use a UTF-8 locale", value,
                                e.index()));
    }
}

FileName fileArgument(const std::string& value) {
    if (value.empty()) throw UsageError("\"\"", "a file name cannot be empty; name a file");
    try {
        return {value, fl::filesystem::path::fromBytes(value)};
    } catch (const fl::i18n::ConversionError& e) {
        throw UsageError(
            value, fmt::format("the file's name is not valid UTF-8 at byte {}; rename the file",
                               e.index()));
    }
}

FileName newPackageArgument(const std::string& value) {
    const FileName file = fileArgument(value);
    if (!appserialization::hasExtension(file.native(), kPackagedExtension)) {
        throw UsageError(value,
                         "the name of a packaged app must end in \".kvpkg\"; choose another");
    }
    return file;
}

}  // namespace qzapp
