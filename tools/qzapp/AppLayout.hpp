#pragma once

#include <foundation/ustring.hpp>

#include <algorithm>
#include <array>

#include "tools/qzapp/Findings.hpp"

// What a packaged app consists of, for the work below the level of app files.
namespace qzapp::layout {

inline constexpr foundation::ustring_view kPackageType = u"application/vnd.quorvane.korval.app";
inline constexpr foundation::ustring_view kMetadataNamespace =
    u"http://schemas.quorvane.com/lumenForge/app/2017/appMetadata";

// A part that an app has once, found by its relationship (the model by its name, too).
struct AppPart {
    foundation::ustring_view name, contentType, relationshipType;
    RuleName whenMissing;
    const char* option;  // of "qzapp edit", which sets it
    RuleName whenDangling = "part-dangling";
};
inline constexpr AppPart kModel{
    u"/lumenforge/appModel.kvd", u"application/vnd.quorvane.korval.lumenForge.appModel+kvd",
    u"http://schemas.quorvane.com/lumenForge/app/2014/relationships/appModel", "model-unlinked",
    "--model FILE"};
inline constexpr AppPart kCode{u"/korval/code.k", u"application/vnd.quorvane.korval.code",
                               u"http://schemas.quorvane.com/korval/2026/relationships/code",
                               "code-missing", "--code FILE"};
inline constexpr AppPart kMetadata{
    u"/metadata/appMetadata.xml", u"application/vnd.quorvane.korval.lumenForge.appMetadata+xml",
    u"http://schemas.quorvane.com/lumenForge/app/2017/relationships/appMetadata",
    "metadata-missing", "--set KVPKGVersion=1"};
inline constexpr AppPart kCoreProperties{
    u"/docProps/core.xml",
    u"application/vnd.openxmlformats-package.core-properties+xml",
    u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties",
    "core-properties-missing",
    "--set KVPKGVersion=1",
    "relationship-dangling"};
inline constexpr AppPart kHostProperties{
    u"/docProps/korval.xml",
    u"application/vnd.quorvane.korval.hostProperties+xml",
    u"http://schemas.quorvane.com/package/2026/relationships/hostProperties",
    "host-properties-missing",
    "--set KVPKGVersion=1",
    "relationship-dangling"};
inline constexpr std::array kParts = {kModel, kCode, kMetadata, kCoreProperties, kHostProperties};

inline constexpr foundation::ustring_view kScreenshotRelationship =
    u"http://schemas.quorvane.com/lumenForge/app/2017/relationships/appScreenshot";
inline constexpr foundation::ustring_view kScreenshotStem = u"/metadata/appScreenshot.";
struct ScreenshotType {
    foundation::ustring_view extension, contentType;
};
inline constexpr std::array kScreenshotTypes = {
    ScreenshotType{u"png", u"image/png"}, ScreenshotType{u"jpg", u"image/jpeg"},
    ScreenshotType{u"jpeg", u"image/jpeg"}, ScreenshotType{u"gif", u"image/gif"}};

// Whether relationships of this type lead to a part of an app.
inline bool isAppRelationship(foundation::ustring_view type) {
    return type == kScreenshotRelationship ||
           std::ranges::find(kParts, type, &AppPart::relationshipType) != kParts.end();
}

// An element of the metadata part; `item` and `attribute` where it is a list.
struct MetadataElement {
    const char *name, *item, *attribute;
};
inline constexpr std::array kMetadataElements = {
    MetadataElement{"description", nullptr, nullptr},
    MetadataElement{"KVPKGVersion", nullptr, nullptr},
    MetadataElement{"minimumSupportedKORVALRelease", nullptr, nullptr},
    MetadataElement{"screenshotMode", nullptr, nullptr},
    MetadataElement{"uuid", nullptr, nullptr},
    MetadataElement{"AppType", nullptr, nullptr},
    MetadataElement{"componentProducts", "product", "id"},
    MetadataElement{"imageRelativePaths", "imageRelativePath", "path"},
    MetadataElement{"userComponents", "userComponent", "class"},
};

}  // namespace qzapp::layout
