#pragma once

// Every name that a packaged app file is made of, for the writer and both readers.

#include <appserialization/AppMetadata.hpp>
#include <opc/ImageTypes.hpp>
#include <opc/Package.hpp>

#include <array>
#include <cstddef>
#include <vector>

namespace appserialization::layout {

inline constexpr const char16_t* kExtension = u".kvpkg";

// The package as a whole; the core properties say it and the code-file library is told.
inline constexpr const char16_t* kPackageContentType = u"application/vnd.quorvane.korval.app";
inline constexpr const char16_t* kPackageFriendlyName = u"KORVAL App";

// A macro, because only literals are joined by the compiler. The years differ on purpose.
#define SCHEMA_BASE u"http://schemas.quorvane.com"
inline constexpr const char16_t* kMetadataNamespace =
    SCHEMA_BASE u"/lumenForge/app/2017/appMetadata";
inline constexpr const char16_t* kAppModelRelationship =
    SCHEMA_BASE u"/lumenForge/app/2014/relationships/appModel";
inline constexpr const char16_t* kMetadataRelationship =
    SCHEMA_BASE u"/lumenForge/app/2017/relationships/appMetadata";
inline constexpr const char16_t* kScreenshotRelationship =
    SCHEMA_BASE u"/lumenForge/app/2017/relationships/appScreenshot";
#undef SCHEMA_BASE

// A part with one name. All relationships start from the package; readers find the model by its name
// and the others by relationship.
struct PartRow {
    const char16_t* name;
    const char16_t* contentType;
    const char16_t* relationshipType;
};
inline constexpr PartRow kAppModel{
    u"/lumenforge/appModel.kvd",
    u"application/vnd.quorvane.korval.lumenForge.appModel+kvd",
    kAppModelRelationship,
};
inline constexpr PartRow kMetadata{
    u"/metadata/appMetadata.xml",
    u"application/vnd.quorvane.korval.lumenForge.appMetadata+xml",
    kMetadataRelationship,
};

// How every part is stored: deflated for speed, size unknown beforehand.
inline opc::model::StandardPartInfo partInfo() {
    return opc::model::StandardPartInfo(1, 0);
}

// The screenshot's part is named by its format, which readers take from there.
inline constexpr const char16_t* kScreenshotNameStem = u"/metadata/appScreenshot.";
// Readers hold a screenshot in memory, so there is a most that it may take.
inline constexpr std::size_t kMaxScreenshotBytes = std::size_t{256} << 20;
struct ScreenshotFormatRow {
    const char16_t* extension;
    opc::model::ContentType (*contentType)();
};
// The first stands for every format that is not in the table.
inline constexpr std::array kScreenshotFormats = {
    ScreenshotFormatRow{u"png", opc::qzservices::getPNGContentType},
    ScreenshotFormatRow{u"jpg", opc::qzservices::getJPEGContentType},
    ScreenshotFormatRow{u"jpeg", opc::qzservices::getJPEGContentType},
    ScreenshotFormatRow{u"gif", opc::qzservices::getGIFContentType},
};

inline constexpr const char16_t* kMetadataRoot = u"metadata";

// A child of the root that holds a field's text.
struct TextElementRow {
    const char16_t* name;
    const char16_t* defaultText;
    boost::optional<ustring> (AppMetadata::*get)() const;
    void (AppMetadata::*set)(const ustring&);
};
inline constexpr TextElementRow kDescription{
    u"description",
    u"",
    &AppMetadata::getDescription,
    &AppMetadata::setDescription,
};
inline constexpr TextElementRow kKVPKGVersion{
    u"KVPKGVersion",
    u"1",
    &AppMetadata::getKVPKGVersion,
    &AppMetadata::setKVPKGVersion,
};
inline constexpr TextElementRow kMinimumSupportedKORVALRelease{
    u"minimumSupportedKORVALRelease",
    u"R2016a",
    &AppMetadata::getMinimumSupportedKORVALRelease,
    &AppMetadata::setMinimumSupportedKORVALRelease,
};
inline constexpr TextElementRow kScreenshotMode{
    u"screenshotMode",
    u"auto",
    &AppMetadata::getScreenshotMode,
    &AppMetadata::setScreenshotMode,
};
inline constexpr TextElementRow kUuid{
    u"uuid",
    u"",
    &AppMetadata::getUuid,
    &AppMetadata::setUuid,
};
inline constexpr TextElementRow kAppType{
    u"AppType",
    u"Standard",
    &AppMetadata::getAppType,
    &AppMetadata::setAppType,
};
// The order in the document, and the order in which documents are read.
inline constexpr std::array kTextElementsAsWritten = {
    &kDescription,    &kKVPKGVersion, &kMinimumSupportedKORVALRelease,
    &kScreenshotMode, &kUuid,         &kAppType,
};
inline constexpr std::array kTextElementsAsRead = {
    &kDescription, &kScreenshotMode, &kKVPKGVersion, &kMinimumSupportedKORVALRelease,
    &kUuid,        &kAppType,
};
static_assert(kTextElementsAsWritten.size() == kTextElementsAsRead.size());

// A child of the root that holds a field's list: an item element for each value, in an attribute.
struct ListElementRow {
    const char16_t* name;
    const char16_t* item;
    const char16_t* attribute;
    boost::optional<std::vector<ustring>> (AppMetadata::*get)() const;
    void (AppMetadata::*set)(const std::vector<ustring>&);
};
// Written behind the texts, and read, in this order.
inline constexpr std::array kListElements = {
    ListElementRow{
        u"componentProducts",
        u"product",
        u"id",
        &AppMetadata::getRequiredProducts,
        &AppMetadata::setRequiredProducts,
    },
    ListElementRow{
        u"imageRelativePaths",
        u"imageRelativePath",
        u"path",
        &AppMetadata::getImageRelativePaths,
        &AppMetadata::setImageRelativePaths,
    },
    ListElementRow{
        u"userComponents",
        u"userComponent",
        u"class",
        &AppMetadata::getUserComponents,
        &AppMetadata::setUserComponents,
    },
};

// The version of an app whose package does not say.
inline constexpr const char16_t* kDefaultVersion = u"1.0";

}  // namespace appserialization::layout
