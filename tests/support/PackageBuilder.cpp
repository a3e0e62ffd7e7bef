#include "tests/support/PackageBuilder.hpp"

#include <algorithm>

namespace test_support {

PackageBuilder& PackageBuilder::with(std::string_view item, std::string_view content) {
    const auto found = std::ranges::find(items_, item, [](const auto& each) { return each.first; });
    if (found == items_.end()) {
        items_.emplace_back(item, content);
    } else {
        found->second = content;
    }
    return *this;
}

PackageBuilder& PackageBuilder::without(std::string_view item) {
    std::erase_if(items_, [&](const auto& each) { return each.first == item; });
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

BuiltZip PackageBuilder::zip() const {
    BuiltZip zip;
    for (const auto& [name, content] : items_)
        zip.items.push_back({.name = name, .content = content});
    return zip;
}

PackageBuilder goodPlainPackage() {
    PackageBuilder package;
    package
        .withTypes(
            R"(<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>)"
            R"(<Default Extension="xml" ContentType="application/xml"/>)"
            R"(<Override PartName="/data" ContentType="application/octet-stream"/>)")
        .withRelationships(R"(<Relationship Id="d" Type="urn:data" Target="/data"/>)")
        .with("data", "data")
        .with("foreign/a.xml", "<a/>")
        .with("foreign/_rels/a.xml.rels", "not judged");
    return package;
}

}  // namespace test_support
