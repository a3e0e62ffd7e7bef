#include "tests/support/PackageBuilder.hpp"

namespace test_support {

PackageBuilder& PackageBuilder::with(std::string_view item, std::string_view content) {
    without(item);
    zip_.items.push_back({.name = std::string(item), .content = std::string(content)});
    return *this;
}

PackageBuilder& PackageBuilder::without(std::string_view item) {
    std::erase_if(zip_.items, [&](const BuiltItem& each) { return each.name == item; });
    return *this;
}

PackageBuilder& PackageBuilder::withTypes(std::string_view entries) {
    return with("[Content_Types].xml",
                R"(<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">)" +
                    std::string(entries) + "</Types>");
}

PackageBuilder& PackageBuilder::withRelationships(std::string_view entries) {
    return with(
        "_rels/.rels",
        R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)" +
            std::string(entries) + "</Relationships>");
}

PackageBuilder goodPlainPackage() {
    PackageBuilder package;
    package
        .withTypes(
            R"(<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>)"
            R"(<Default Extension="xml" ContentType="application/xml"/>)"
            R"(<Override PartName="/docProps/core.xml" ContentType="application/vnd.openxmlformats-package.core-properties+xml"/>)"
            R"(<Override PartName="/data" ContentType="application/octet-stream"/>)")
        .withRelationships(R"(<Relationship Id="d" Type="urn:data" Target="/data"/>)")
        .with("data", "data")
        .with("foreign/a.xml", "<a/>")
        .with("foreign/_rels/a.xml.rels", "not judged");
    return package;
}

}  // namespace test_support
