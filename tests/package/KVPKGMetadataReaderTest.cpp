#include <appserialization/Exceptions.hpp>
#include <appserialization/KVPKGMetadataReader.hpp>
#include <foundation/Exceptions.hpp>
#include <opc/Exception.hpp>

#include <gmock/gmock.h>

#include "tests/package/DifferingFields.hpp"
#include "tests/support/AppPackage.hpp"
#include "tests/support/TemporaryDirectory.hpp"

namespace appserialization {
namespace {

using test_support::AppPackage;
using test_support::differingFields;
using test_support::goodPackage;
using testing::IsEmpty;

class KVPKGMetadataReaderTest : public testing::Test {
protected:
    ustring write(const AppPackage& package) {
        return directory_.write("app.kvpkg", package.bytes());
    }
    AppMetadata read(const AppPackage& package) {
        return KVPKGMetadataReader(write(package)).readMetadata();
    }
    Screenshot readScreenshot(const AppPackage& package) {
        return KVPKGMetadataReader(write(package)).readScreenshotAsBytes();
    }

    test_support::TemporaryDirectory directory_;
};

AppPackage bare() {
    return goodPackage()
        .without(u"/metadata/appMetadata.xml")
        .without(u"/metadata/appScreenshot.png")
        .without(u"/docProps/core.xml")
        .withoutRelationships(test_support::kMetadataType)
        .withoutRelationships(test_support::kScreenshotType)
        .withoutRelationships(test_support::kThumbnailType)
        .withoutRelationships(
            u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/"
            u"core-properties");
}

TEST_F(KVPKGMetadataReaderTest, AModelAloneGivesDefaultsAndNoScreenshot) {
    AppMetadata expected;
    expected.setName(u"");
    expected.setSummary(u"");
    expected.setAuthor(u"");
    expected.setVersion(u"1.0");
    expected.setDescription(u"");
    expected.setScreenshotMode(u"auto");
    expected.setKVPKGVersion(u"1");
    expected.setMinimumSupportedKORVALRelease(u"R2016a");
    expected.setKORVALRelease(u"");
    expected.setUuid(u"");
    expected.setAppType(u"Standard");
    expected.setRequiredProducts({});
    expected.setUserComponents({});
    expected.setImageRelativePaths({});
    EXPECT_THAT(differingFields(read(bare()), expected), IsEmpty());
    EXPECT_EQ(readScreenshot(bare()), Screenshot());
}

TEST_F(KVPKGMetadataReaderTest, ReadsBothSourcesEachTimeAnew) {
    const KVPKGMetadataReader reader(write(goodPackage()));
    const AppMetadata metadata = reader.readMetadata();
    EXPECT_EQ(metadata.getName().value(), u"Good App");
    EXPECT_EQ(metadata.getAuthor().value(), u"Author");
    EXPECT_EQ(metadata.getVersion().value(), u"3.1");
    EXPECT_EQ(metadata.getSummary().value(), u"Good Summary");
    EXPECT_EQ(metadata.getDescription().value(), u"Good Description");
    EXPECT_THAT(differingFields(metadata, reader.readMetadata()), IsEmpty());
    EXPECT_EQ(reader.readScreenshotAsBytes(), reader.readScreenshotAsBytes());
    EXPECT_EQ(reader.getExtension(), u".kvpkg");
    EXPECT_EQ(reader.getFileName(), directory_.name("app.kvpkg"));
}

TEST_F(KVPKGMetadataReaderTest, TwoMetadataRelationshipsAreAsBadAsNone) {
    const AppMetadata metadata = read(
        goodPackage().withRelationship(test_support::kMetadataType, u"/metadata/appMetadata.xml"));
    EXPECT_EQ(metadata.getDescription().value(), u"");
    EXPECT_EQ(metadata.getName().value(), u"Good App");
}

TEST_F(KVPKGMetadataReaderTest, TheScreenshotsFormatIsItsNamesExtension) {
    const std::vector<std::uint8_t> image = {'i', 'm', 'a', 'g', 'e'};
    const auto at = [](const char16_t* name) {
        return goodPackage()
            .without(u"/metadata/appScreenshot.png")
            .with(name, "image")
            .withoutRelationships(test_support::kScreenshotType)
            .withRelationship(test_support::kScreenshotType, name);
    };
    EXPECT_EQ(readScreenshot(goodPackage()), Screenshot(u"png", image));
    EXPECT_EQ(readScreenshot(at(u"/metadata/x.jpeg")), Screenshot(u"jpeg", image));
    EXPECT_EQ(readScreenshot(at(u"/metadata/x.y.PNG")), Screenshot(u"PNG", image));
    EXPECT_EQ(readScreenshot(goodPackage().withRelationship(test_support::kScreenshotType,
                                                            u"/metadata/appScreenshot.png")),
              Screenshot());
}

TEST_F(KVPKGMetadataReaderTest, StaysUsableWhenAPartIsDamaged) {
    const KVPKGMetadataReader reader(
        write(goodPackage().with(u"/metadata/appMetadata.xml", "<metadata>")));
    EXPECT_THROW(reader.readMetadata(), opc::Exception);
    EXPECT_EQ(reader.readScreenshotAsBytes().first, u"png");
    const KVPKGMetadataReader other(write(goodPackage().without(u"/metadata/appScreenshot.png")));
    EXPECT_THROW(other.readScreenshotAsBytes(), opc::Exception);
    EXPECT_EQ(other.readMetadata().getName().value(), u"Good App");
}

TEST_F(KVPKGMetadataReaderTest, TheConstructorTranslatesNothing) {
    EXPECT_THROW(KVPKGMetadataReader(directory_.name("app.KVPKG")),
                 AppFileReaderInvalidFileExtensionCase);
    EXPECT_THROW(KVPKGMetadataReader(directory_.name("app.k")), AppFileReaderInvalidFileExtension);
    EXPECT_THROW(KVPKGMetadataReader(directory_.name("no.kvpkg")), AppFileReaderInvalidFileName);
    EXPECT_THROW(KVPKGMetadataReader(directory_.write("bad.kvpkg", "no zip")), opc::Exception);
    const ustring app = write(goodPackage().without(u"/lumenforge/appModel.kvd"));
    try {
        KVPKGMetadataReader reader(app);
        ADD_FAILURE() << "an app without a model was taken";
    } catch (const AppFileReaderGenericException& error) {
        EXPECT_STREQ(error.what(), "File is missing App Model part");
        EXPECT_EQ(error.getFileName(), app);
        EXPECT_NE(dynamic_cast<const foundation::core::except::InternalException*>(&error),
                  nullptr);
    }
}

}  // namespace
}  // namespace appserialization
