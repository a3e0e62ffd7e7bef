#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/PackageBuilder.hpp"

namespace test_support {

// The relationship types of an app, spelled out so that a wrong constant in the library fails a
// test.
inline constexpr const char16_t* kModelType =
    u"http://schemas.quorvane.com/lumenForge/app/2014/relationships/appModel";
inline constexpr const char16_t* kMetadataType =
    u"http://schemas.quorvane.com/lumenForge/app/2017/relationships/appMetadata";
inline constexpr const char16_t* kScreenshotType =
    u"http://schemas.quorvane.com/lumenForge/app/2017/relationships/appScreenshot";
inline constexpr const char16_t* kCodeType =
    u"http://schemas.quorvane.com/korval/2026/relationships/code";
inline constexpr const char16_t* kThumbnailType =
    u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/thumbnail";

// Builds a packaged app without the library under test, so that a test can break exactly one thing.
// Names must be ASCII, contents may be any bytes.
class AppPackage {
public:
    // Removes the part; relationships to it stay.
    AppPackage& without(std::u16string_view part);
    // Adds the part, or replaces its content.
    AppPackage& with(std::u16string_view part, std::string_view bytes);
    // Adds or replaces the metadata part; `children` is the XML in its root element.
    AppPackage& withMetadata(std::string_view children);
    AppPackage& withRelationship(std::u16string_view type, std::u16string_view target);
    AppPackage& withoutRelationships(std::u16string_view type);

    BuiltZip zip() const;
    std::string bytes() const { return zip().bytes(); }

private:
    PackageBuilder package_;
    std::vector<std::pair<std::string, std::string>> relationships_;  // type, target
};

// An app with a model, code, metadata, a screenshot and core properties.
AppPackage goodPackage();

}  // namespace test_support
