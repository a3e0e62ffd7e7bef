#pragma once

#include <appserialization/AppMetadataReader.hpp>
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

// "packaged", "text".
const char* nameOf(Form form);
// ".kvpkg", ".k".
std::string shownExtension(Form form);

// Which form of app the file's name says it has. Throws Error, with the way out, when neither.
Form formOf(const FileName& file);

// Throws Error, saying what there is instead, unless the file has this form.
void requireForm(const FileName& file, Form form);

// Why a file of this kind is no text app, and what to do about it; nullopt when it may be one.
struct WrongKind {
    std::string what, fix;
};
std::optional<WrongKind> whyNoText(const opc::FileKind& kind);

// Opens an app of either form. All failures are Errors about the file.
std::unique_ptr<appserialization::AppMetadataReader> openApp(const FileName& file);

// The app's screenshot. All failures are Errors about the file.
appserialization::Screenshot readScreenshot(const FileName& file,
                                            const appserialization::AppMetadataReader& reader);

}  // namespace qzapp
