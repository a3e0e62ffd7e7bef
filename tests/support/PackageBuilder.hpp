#pragma once

#include <string>
#include <string_view>

#include "tests/support/ZipBuilder.hpp"

namespace test_support {

// A package made of bytes, without the library under test, so that a test can break exactly one
// thing. Items are named as in the zip file, without a leading "/".
class PackageBuilder {
public:
    // Adds the item, or replaces its content.
    PackageBuilder& with(std::string_view item, std::string_view content);
    PackageBuilder& without(std::string_view item);
    // Entries of the content types, and of the package's relationships, as XML.
    PackageBuilder& withTypes(std::string_view entries);
    PackageBuilder& withRelationships(std::string_view entries);

    // The zip file that it is, for breaking that.
    const BuiltZip& zip() const { return zip_; }
    std::string bytes() const { return zip_.bytes(); }

private:
    BuiltZip zip_;
};

inline constexpr std::string_view kCorePropertiesRelationship =
    R"(<Relationship Id="core" Type="http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties" Target="docProps/core.xml"/>)";

// With content types that know "xml", "rels" and "/data", the part "/data" ("data"), and a foreign
// part with its own relationships.
PackageBuilder goodPlainPackage();

}  // namespace test_support
