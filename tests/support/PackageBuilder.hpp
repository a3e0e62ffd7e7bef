#pragma once

#include <string>
#include <string_view>

#include "tests/support/ZipBuilder.hpp"

namespace test_support {

// Builds a package without the library under test, so that a test can break exactly one thing.
// Items are named as in the zip file, without a leading "/".
class PackageBuilder {
public:
    // Adds the item, or replaces its content.
    PackageBuilder& with(std::string_view item, std::string_view content);
    PackageBuilder& without(std::string_view item);
    // Replace the content types, or the package's relationships; `entries` is the XML in the root
    // element.
    PackageBuilder& withTypes(std::string_view entries);
    PackageBuilder& withRelationships(std::string_view entries);

    // The zip file, for tests that break it rather than the package.
    const BuiltZip& zip() const { return zip_; }
    std::string bytes() const { return zip_.bytes(); }

private:
    BuiltZip zip_;
};

inline constexpr std::string_view kCorePropertiesRelationship =
    R"(<Relationship Id="core" Type="http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties" Target="docProps/core.xml"/>)";

// A package with content types for the extensions "xml" and "rels" and for "/data", with the part
// "/data" (content "data"), and with a foreign part that has relationships of its own.
PackageBuilder goodPlainPackage();

}  // namespace test_support
