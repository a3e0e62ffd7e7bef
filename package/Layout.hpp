#pragma once

// Every name in a packaged app file, and the tables of its parts and fields. The writer, the
// readers and the checks work from these tables, so a new part, format or field is one more row.

#include <appserialization/AppMetadata.hpp>
#include <appserialization/ustring.hpp>
#include <foundation/JoinedText.hpp>
#include <foundation/ustring.hpp>
#include <opc/ImageTypes.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>
#include <opc/PartKind.hpp>
#include <opc/PartName.hpp>
#include <quillcode/CodePart.hpp>

#include <boost/optional.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace appserialization::layout {

inline constexpr const char16_t* kExtension = u".kvpkg";

// What the package as a whole is. The core properties hold both texts, and the code-file library
// gets them for files that it creates.
inline constexpr const char16_t* kPackageContentType = u"application/vnd.quorvane.korval.app";
inline constexpr const char16_t* kPackageFriendlyName = u"KORVAL App";

// The years differ on purpose: 2014 for the model, 2017 for the rest.
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

// The parts that an app has at most once, each with its usual name, content type and relationship
// type. All relationships start from the package. Readers find the model by its name and all other
// parts by relationship. Edits compare a part with all rows before they change it, so that no edit
// overwrites another kind of part; a kind that is not in this table is not protected.
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

// The row with this relationship type. If there is none, the call does not compile.
consteval const opc::model::PartKindRow& partOf(opc::model::ustring_view relationshipType) {
    const auto found =
        std::ranges::find(kParts, relationshipType, &opc::model::PartKindRow::relationshipType);
    if (found == kParts.end()) throw "there is no such part";
    return *found;
}
inline constexpr const opc::model::PartKindRow& kAppModel = partOf(kAppModelRelationship);
inline constexpr const opc::model::PartKindRow& kMetadata = partOf(kMetadataRelationship);

// How every part is stored: deflated for speed, with a size that is not known beforehand.
inline opc::model::StandardPartInfo partInfo() {
    return opc::model::StandardPartInfo(1, 0);
}

// The name of the screenshot's part up to its extension, which is the format. Readers take the
// format from there.
inline constexpr const char16_t* kScreenshotNameStem = u"/metadata/appScreenshot.";
// Readers hold a screenshot in memory, so its size is bounded.
inline constexpr std::size_t kMaxScreenshotBytes = std::size_t{256} << 20;
// A format in which a screenshot can be written. Formats may share an image type, as "jpg" and
// "jpeg" do.
struct ScreenshotFormatRow {
    const char16_t* extension;
    const opc::ImageType* type;

    opc::model::ContentType contentType() const { return type->contentType(); }
};
// The first row is used for every format that is not in the table.
inline constexpr std::array kScreenshotFormats = {
    ScreenshotFormatRow{u"png", opc::imageType("png")},
    ScreenshotFormatRow{u"jpg", opc::imageType("jpg")},
    ScreenshotFormatRow{u"jpeg", opc::imageType("jpg")},
    ScreenshotFormatRow{u"gif", opc::imageType("gif")},
};

// The root element of the metadata part. Its children hold the fields.
inline constexpr const char16_t* kMetadataRoot = u"metadata";

// A child of the root that holds a field's text. `defaultText` is for a package without that child.
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
// The texts in the order in which they are written, which is part of the format, and in the order
// in which they are read.
inline constexpr std::array kTextElementsAsWritten = {
    &kDescription,    &kKVPKGVersion, &kMinimumSupportedKORVALRelease,
    &kScreenshotMode, &kUuid,         &kAppType,
};
inline constexpr std::array kTextElementsAsRead = {
    &kDescription, &kScreenshotMode, &kKVPKGVersion, &kMinimumSupportedKORVALRelease,
    &kUuid,        &kAppType,
};
static_assert(kTextElementsAsWritten.size() == kTextElementsAsRead.size());

// A child of the root that holds a field's list. It has an item element for each value, which is in
// an attribute of the item.
struct ListElementRow {
    const char16_t* name;
    const char16_t* item;
    const char16_t* attribute;
    boost::optional<std::vector<ustring>> (AppMetadata::*get)() const;
    void (AppMetadata::*set)(const std::vector<ustring>&);
};
// The lists are read in this order, and written in this order after the texts.
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

// The version of an app whose package properties have none.
inline constexpr const char16_t* kDefaultVersion = u"1.0";

}  // namespace appserialization::layout
