#pragma once

// Every name that a packaged app file is made of, for the writer and both readers.

#include <appserialization/AppMetadata.hpp>
#include <opc/ImageTypes.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>
#include <opc/PartKind.hpp>
#include <quillcode/CodePart.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace appserialization::layout {

inline constexpr const char16_t* kExtension = u".kvpkg";

// The package as a whole; the core properties say it and the code-file library is told.
inline constexpr const char16_t* kPackageContentType = u"application/vnd.quorvane.korval.app";
inline constexpr const char16_t* kPackageFriendlyName = u"KORVAL App";

// The years differ on purpose.
inline constexpr const char16_t* kMetadataNamespace =
    foundation::kJoinedText<opc::names::kHostSchemas, u"/lumenForge/app/2017/appMetadata">.data();
inline constexpr const char16_t* kAppModelRelationship =
    foundation::kJoinedText<opc::names::kHostSchemas,
                            u"/lumenForge/app/2014/relationships/appModel">.data();
inline constexpr const char16_t* kMetadataRelationship =
    foundation::kJoinedText<opc::names::kHostSchemas,
                            u"/lumenForge/app/2017/relationships/appMetadata">.data();
inline constexpr const char16_t* kScreenshotRelationship =
    foundation::kJoinedText<opc::names::kHostSchemas,
                            u"/lumenForge/app/2017/relationships/appScreenshot">.data();

// The parts that an app has once under one name. All relationships start from the package; readers find
// the model by its name and the others by relationship. Whatever changes a part compares it with all of
// these, so that no edit takes one for another: a part that is not in this table is not protected.
inline constexpr std::array kParts = {
    opc::model::PartKindRow{
        "the app's model",
        u"/lumenforge/appModel.kvd",
        u"application/vnd.quorvane.korval.lumenForge.appModel+kvd",
        kAppModelRelationship,
        true,
    },
    quillcode::codepart::kKind,
    opc::model::PartKindRow{
        "the app's metadata",
        u"/metadata/appMetadata.xml",
        u"application/vnd.quorvane.korval.lumenForge.appMetadata+xml",
        kMetadataRelationship,
    },
    opc::model::kCorePropertiesKind,
    opc::model::kHostPropertiesKind,
};

// The row of a relationship type; a part that has none does not compile.
consteval const opc::model::PartKindRow& partOf(opc::model::ustring_view relationshipType) {
    const auto found =
        std::ranges::find(kParts, relationshipType, &opc::model::PartKindRow::relationshipType);
    if (found == kParts.end()) throw "there is no such part";
    return *found;
}
inline constexpr const opc::model::PartKindRow& kAppModel = partOf(kAppModelRelationship);
inline constexpr const opc::model::PartKindRow& kMetadata = partOf(kMetadataRelationship);

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
    const opc::ImageType* type;

    opc::model::ContentType contentType() const { return type->contentType(); }
};
// The first stands for every format that is not in the table.
inline constexpr std::array kScreenshotFormats = {
    ScreenshotFormatRow{u"png", opc::imageType("png")},
    ScreenshotFormatRow{u"jpg", opc::imageType("jpg")},
    ScreenshotFormatRow{u"jpeg", opc::imageType("jpg")},
    ScreenshotFormatRow{u"gif", opc::imageType("gif")},
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
