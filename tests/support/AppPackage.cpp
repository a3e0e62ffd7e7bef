#include "tests/support/AppPackage.hpp"

namespace test_support {

namespace {

std::string narrow(std::u16string_view ascii) {
    return {ascii.begin(), ascii.end()};
}

constexpr std::string_view kTypes =
    R"(<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>)"
    R"(<Default Extension="xml" ContentType="application/vnd.quorvane.korval.lumenForge.appMetadata+xml"/>)"
    R"(<Default Extension="kvd" ContentType="application/vnd.quorvane.korval.lumenForge.appModel+kvd"/>)"
    R"(<Default Extension="k" ContentType="application/vnd.quorvane.korval.code"/>)"
    R"(<Default Extension="png" ContentType="image/png"/>)"
    R"(<Default Extension="jpeg" ContentType="image/jpeg"/>)"
    R"(<Override PartName="/docProps/core.xml" ContentType="application/vnd.openxmlformats-package.core-properties+xml"/>)";

constexpr std::string_view kCoreProperties =
    R"(<cp:coreProperties xmlns:cp="http://schemas.openxmlformats.org/package/2006/metadata/core-properties" xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:dcterms="http://purl.org/dc/terms/" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">)"
    "<dc:title>Good App</dc:title><dc:creator>Author</dc:creator>"
    "<dc:description>Good Summary</dc:description><cp:version>3.1</cp:version>"
    "</cp:coreProperties>";

}  // namespace

AppPackage& AppPackage::without(std::u16string_view part) {
    package_.without(narrow(part).substr(1));
    return *this;
}

AppPackage& AppPackage::with(std::u16string_view part, std::string_view bytes) {
    package_.with(narrow(part).substr(1), bytes);
    return *this;
}

AppPackage& AppPackage::withMetadata(std::string_view children) {
    return with(
        u"/metadata/appMetadata.xml",
        R"(<metadata xmlns="http://schemas.quorvane.com/lumenForge/app/2017/appMetadata">)" +
            std::string(children) + "</metadata>");
}

AppPackage& AppPackage::withRelationship(std::u16string_view type, std::u16string_view target) {
    relationships_.emplace_back(narrow(type), narrow(target));
    return *this;
}

AppPackage& AppPackage::withoutRelationships(std::u16string_view type) {
    std::erase_if(relationships_, [&](const auto& each) { return each.first == narrow(type); });
    return *this;
}

BuiltZip AppPackage::zip() const {
    std::string entries;
    int number = 0;
    for (const auto& [type, target] : relationships_) {
        entries += R"(<Relationship Id="r)" + std::to_string(++number) + R"(" Type=")" + type +
                   R"(" Target=")" + target + R"("/>)";
    }
    return PackageBuilder(package_).withTypes(kTypes).withRelationships(entries).zip();
}

AppPackage goodPackage() {
    AppPackage package;
    package.with(u"/lumenforge/appModel.kvd", std::string_view("model \0 bytes", 13))
        .withMetadata(
            "<description>Good Description</description>"
            R"(<componentProducts><product id="Product"/></componentProducts>)")
        .with(u"/korval/code.k", "x = 1;\n")
        .with(u"/metadata/appScreenshot.png", "image")
        .with(u"/docProps/core.xml", kCoreProperties)
        .withRelationship(kModelType, u"/lumenforge/appModel.kvd")
        .withRelationship(kCodeType, u"/korval/code.k")
        .withRelationship(kMetadataType, u"/metadata/appMetadata.xml")
        .withRelationship(kScreenshotType, u"/metadata/appScreenshot.png")
        .withRelationship(kThumbnailType, u"/metadata/appScreenshot.png")
        .withRelationship(
            u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/"
            u"core-properties",
            u"/docProps/core.xml");
    return package;
}

}  // namespace test_support
