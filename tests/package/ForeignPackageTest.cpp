#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>

#include <gmock/gmock.h>

#include "tests/package/PackageContents.hpp"
#include "tests/support/TemporaryDirectory.hpp"

// foreign.kvpkg was made without this library, by the script beside it.

namespace appserialization {
namespace {

using test_support::readFile;
using testing::ElementsAre;
using testing::IsEmpty;

class ForeignPackageTest : public testing::Test {
protected:
    std::string model() const {
        std::string bytes;
        for (int i = 0; i < 64 * 256; ++i)
            bytes.push_back(static_cast<char>(i));
        return bytes;
    }

    test_support::TemporaryDirectory directory_;
    const ustring app_ = directory_.write(
        "foreign.kvpkg", readFile(std::filesystem::path(QZ_TEST_DATA) / "foreign.kvpkg"));
};

TEST_F(ForeignPackageTest, ReadsExactly) {
    const AppFileReader reader(app_);
    const AppMetadata metadata = reader.getAppMetadata();
    EXPECT_EQ(metadata.getName().value(), u"Foreign & \U0001F30A");
    EXPECT_EQ(metadata.getAuthor().value(), u"Jos\u00e9 \u4e2d\u6587");
    EXPECT_EQ(metadata.getVersion().value(), u"1.0");
    EXPECT_EQ(metadata.getSummary().value(), u"");
    EXPECT_EQ(metadata.getDescription().value(), u" D\u00e9j\u00e0 <vu> \U0001F30A\nsecond line ");
    EXPECT_EQ(metadata.getScreenshotMode().value(), u"manual");
    EXPECT_EQ(metadata.getKVPKGVersion().value(), u"1");
    EXPECT_EQ(metadata.getMinimumSupportedKORVALRelease().value(), u"R2016a");
    EXPECT_EQ(metadata.getKORVALRelease().value(), u"");
    EXPECT_EQ(metadata.getUuid().value(), u"7b1c");
    EXPECT_EQ(metadata.getAppType().value(), u"Special");
    EXPECT_THAT(*metadata.getRequiredProducts(), IsEmpty());
    EXPECT_THAT(*metadata.getImageRelativePaths(), IsEmpty());
    EXPECT_THAT(*metadata.getUserComponents(), ElementsAre(u"Gauge", u"G&\nT"));

    std::vector<std::uint8_t> image;
    ustring format;
    reader.getAppScreenshot(image, format);
    EXPECT_EQ(std::string(image.begin(), image.end()), "\xFF\xD8\xFF\xE0 a picture");
    EXPECT_EQ(format, u"JPEG");
    EXPECT_EQ(reader.getKORVALCodeText(), u"% d\u00e9j\u00e0 \U0001F30A\r\nx = 1;\n");
    reader.copyAppDataToTempFile(directory_.name("copy"));
    EXPECT_TRUE(readFile(directory_.path() / "copy") == model());
}

TEST_F(ForeignPackageTest, KeepsItsOwnNamesThroughAnEdit) {
    AppMetadata metadata;
    metadata.setSummary(u"edited");
    AppFileWriter writer(app_, false);
    writer.setAppMetadata(metadata);
    writer.setKORVALCodeText(u"code");
    writer.setAppScreenshot({1}, u"png");
    writer.close();

    const AppFileReader reader(app_);
    EXPECT_EQ(reader.getKORVALCodeText(), u"code");
    EXPECT_EQ(reader.getAppMetadata().getName().value(), u"Foreign & \U0001F30A");
    EXPECT_EQ(reader.getAppMetadata().getSummary().value(), u"edited");
    EXPECT_EQ(reader.getAppMetadata().getUuid().value(), u"7b1c");
    const test_support::PackageContents package(app_);
    EXPECT_TRUE(package.parts.at(u"/lumenforge/appModel.kvd") == model());
    EXPECT_TRUE(package.parts.contains(u"/about/app.xml"));
    EXPECT_FALSE(package.parts.contains(u"/metadata/appMetadata.xml"));
    EXPECT_TRUE(package.parts.contains(u"/Properties/Core.xml"));
    EXPECT_FALSE(package.parts.contains(u"/docProps/core.xml"));
    EXPECT_TRUE(package.parts.contains(u"/metadata/appScreenshot.png"));
    EXPECT_EQ(package.parts.at(u"/source/main.k"), "code");
    EXPECT_FALSE(package.parts.contains(u"/pictures/screen%20shot.JPEG"));
    const std::string bytes = readFile(directory_.path() / "foreign.kvpkg");
    EXPECT_TRUE(bytes.ends_with("made elsewhere")) << "the archive's comment";
}

}  // namespace
}  // namespace appserialization
