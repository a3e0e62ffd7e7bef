#pragma once

#include <appserialization/AppMetadataReader.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <fl/FileDescriptor.hpp>
#include <foundation/ustring.hpp>
#include <opc/FileKind.hpp>

#include <memory>
#include <optional>
#include <string>

#include "app/FileName.hpp"
#include "package/Layout.hpp"
#include "textapp/Layout.hpp"

namespace qzapp {

inline constexpr const char16_t* kPackagedExtension = appserialization::layout::kExtension;
inline constexpr const char16_t* kTextExtension = appserialization::textapp::kExtension;

enum class Form { Packaged, Text };

// "packaged" or "text".
const char* nameOf(Form form);
// ".kvpkg" or ".k".
std::string shownExtension(Form form);

// The extension without which readers do not take an app.
foundation::ustring extensionOf(Form form);

// The form of app that the content is, if it is an app, for content that comes without a name.
Form formOfContent(const fl::filesystem::FileDescriptor& content);

// The form of app that the file's extension names; the file is not opened. Throws Error if it is
// neither, or not in lower case.
Form formOf(const FileName& file);

// Throws Error, naming the form that was found, unless formOf() is `form`.
void requireForm(const FileName& file, Form form);

// Why a file cannot be a text app, and what to do about it.
struct WrongKind {
    std::string what, fix;
};
// Nothing if a file of this kind may be a text app.
std::optional<WrongKind> whyNoText(const opc::FileKind& kind);

// Opens an app of either form for reading. All failures are Errors about the file; for a damaged
// package the message points to "qzapp check".
std::unique_ptr<appserialization::AppMetadataReader> openApp(const FileName& file);

// The screenshot of the app that `reader` has opened from `file`; the format is empty if there is
// none. All failures are Errors about the file.
appserialization::Screenshot readScreenshot(const FileName& file,
                                            const appserialization::AppMetadataReader& reader);
// Like readScreenshot(), for callers that need only the format and the size.
appserialization::ScreenshotSize readScreenshotSize(
    const FileName& file, const appserialization::AppMetadataReader& reader);

}  // namespace qzapp
