#include <appserialization/Exceptions.hpp>
#include <appserialization/Functions.hpp>

#include <appserialization/ustring.hpp>
#include <fl/filesystem.hpp>
#include <fl/i18n.hpp>
#include <foundation/Exceptions.hpp>

namespace appserialization {

using foundation::core::except::throwInternal;

bool hasExtension(const ustring& fileName, const ustring& extension) {
    return extension.size() < fileName.size() && fileName.ends_with(extension);
}

bool isExtensionWrongCase(const ustring& fileName, const ustring& extension) {
    return !hasExtension(fileName, extension) &&
           hasExtension(fl::i18n::to_lower(fileName), extension);
}

ustring validateFilePath(const ustring& fileName, const ustring& extension) {
    // The extension comes first: a name with a wrong one is never looked up.
    if (!hasExtension(fileName, extension)) {
        if (isExtensionWrongCase(fileName, extension)) {
            throwInternal(AppFileReaderInvalidFileExtensionCase(fileName));
        }
        throwInternal(AppFileReaderInvalidFileExtension(fileName));
    }
    const auto path = fl::filesystem::detail::make_native_form(fileName, true);
    if (!fl::filesystem::exists(path)) throwInternal(AppFileReaderInvalidFileName(fileName));
    return fl::filesystem::absolute(path).native();
}

}  // namespace appserialization
