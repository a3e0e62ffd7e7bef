#pragma once

#include <foundation/Export.hpp>

#include <string_view>

namespace messages {

// A message of the host's catalog: the catalog's name, the message's own, and its English text, in
// which {0}, {1}, ... stand for the arguments.
struct CatalogEntry {
    const char* catalog;
    const char* identifier;
    const char16_t* text;
};

// The messages about app files; {0} is the file name.
inline constexpr const char* kLumenforgeCatalog = "KORVAL:lumenforge:lumenforge";

inline constexpr CatalogEntry kInvalidFileName{
    kLumenforgeCatalog, "InvalidFileName",
    u"'{0}' is not a valid app file name or does not exist."};
inline constexpr CatalogEntry kInvalidFileExtension{
    kLumenforgeCatalog, "InvalidFileExtension",
    u"'{0}' does not have the extension of an app file."};
inline constexpr CatalogEntry kInvalidFileExtensionCase{
    kLumenforgeCatalog, "InvalidFileExtensionCase",
    u"The extension of '{0}' must be in lower case."};
inline constexpr CatalogEntry kLoadFailed{kLumenforgeCatalog, "LoadFailed",
                                          u"The app file '{0}' could not be loaded."};

// Null when the catalog has no such message.
PLATFORM_API const CatalogEntry* findEntry(std::string_view catalog, std::string_view identifier);

}  // namespace messages
