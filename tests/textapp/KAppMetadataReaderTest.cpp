#include <appserialization/Exceptions.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <fl/i18n.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/TemporaryDirectory.hpp"

namespace appserialization {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string section(const std::string& name, const std::string& body) {
    return "%[" + name + "]\n%{\n" + body + "\n%}\n";
}

std::string thumbnail(const std::string& element) {
    return section("app:thumbnail", element);
}

std::string repeated(const std::string& piece, std::size_t size) {
    std::string text;
    while (text.size() < size) {
        text += piece;
    }
    return text;
}

class KAppMetadataReaderTest : public ::testing::Test {
protected:
    AppMetadata metadataOf(const std::string& file) {
        return KAppMetadataReader(directory_.write("app.k", file)).readMetadata();
    }
    Screenshot screenshotOf(const std::string& file) {
        return KAppMetadataReader(directory_.write("app.k", file)).readScreenshotAsBytes();
    }

    test_support::TemporaryDirectory directory_;
};

TEST_F(KAppMetadataReaderTest, GivesEveryFieldADefault) {
    for (const char* file : {"", "x = 1;\n", "%[app:appDetails]\n%{\n<Name>no closer</Name>"}) {
        SCOPED_TRACE(file);
        const AppMetadata metadata = metadataOf(file);
        EXPECT_EQ(metadata.getName().value(), u"");
        EXPECT_EQ(metadata.getSummary().value(), u"");
        EXPECT_EQ(metadata.getAuthor().value(), u"");
        EXPECT_EQ(metadata.getVersion().value(), u"1.0");
        EXPECT_EQ(metadata.getDescription().value(), u"");
        EXPECT_EQ(metadata.getScreenshotMode().value(), u"auto");
        EXPECT_EQ(metadata.getKVPKGVersion().value(), u"");
        EXPECT_EQ(metadata.getMinimumSupportedKORVALRelease().value(), u"R2025a");
        EXPECT_EQ(metadata.getKORVALRelease().value(), u"");
        EXPECT_EQ(metadata.getUuid().value(), u"");
        EXPECT_EQ(metadata.getAppType().value(), u"Standard");
        EXPECT_EQ(metadata.getRequiredProducts().value(), std::vector<ustring>{});
        EXPECT_EQ(metadata.getUserComponents().value(), std::vector<ustring>{});
        EXPECT_EQ(metadata.getImageRelativePaths().value(), std::vector<ustring>{});
    }
}

TEST_F(KAppMetadataReaderTest, ReadsEveryFieldAndTrimsAllButTwo) {
    // Bytes that are no UTF-8, NUL and a byte-order mark before the appendix disturb nothing.
    const AppMetadata metadata = metadataOf(
        std::string("\xEF\xBB\xBF\xC3(\0\xFF\n", 7) +
        section("app:appDetails",
                "<Name> N\xC3\xA4me\t</Name><Author> Author </Author><Version> 2 </Version>"
                "<Summary> Summary </Summary><Description>\nDescription\n</Description>"
                "<AppId>in the wrong section</AppId>") +
        section("app:internalData",
                "<AppId> id </AppId><AppType> Type </AppType><KORVALRelease> R </KORVALRelease>"
                "<MinimumSupportedKORVALRelease> M </MinimumSupportedKORVALRelease>"
                "<RequiredProducts><Product> A&amp;lt;B </Product><Product/></RequiredProducts>"
                "<UserComponents><Component>&lt;C</Component></UserComponents>"
                "<ImageRelativePaths>&lt;Path>p&lt;/Path></ImageRelativePaths>"));
    EXPECT_EQ(metadata.getName().value(), u"N\u00E4me");
    EXPECT_EQ(metadata.getSummary().value(), u" Summary ");
    EXPECT_EQ(metadata.getAuthor().value(), u"Author");
    EXPECT_EQ(metadata.getVersion().value(), u"2");
    EXPECT_EQ(metadata.getDescription().value(), u"\nDescription\n");
    EXPECT_EQ(metadata.getMinimumSupportedKORVALRelease().value(), u"M");
    EXPECT_EQ(metadata.getKORVALRelease().value(), u"R");
    EXPECT_EQ(metadata.getUuid().value(), u"id");
    EXPECT_EQ(metadata.getAppType().value(), u"Type");
    EXPECT_THAT(metadata.getRequiredProducts().value(), ElementsAre(u"A&lt;B"));
    EXPECT_THAT(metadata.getUserComponents().value(), ElementsAre(u"<C"));
    EXPECT_THAT(metadata.getImageRelativePaths().value(), ElementsAre(u"p"));
}

TEST_F(KAppMetadataReaderTest, DerivesTheScreenshotMode) {
    const struct {
        const char* why;
        const char* element;
        const char16_t* mode;
    } rows[] = {
        {"false with content", "<Thumbnail autoCapture='false'>x</Thumbnail>", u"manual"},
        {"white space is content", "<Thumbnail autoCapture='false'> </Thumbnail>", u"manual"},
        {"false and empty", "<Thumbnail autoCapture='false'></Thumbnail>", u"none"},
        {"false and self-closed", "<Thumbnail autoCapture='false'/>", u"none"},
        {"true", "<Thumbnail autoCapture='true'>x</Thumbnail>", u"auto"},
        {"padded false", "<Thumbnail autoCapture=' false'>x</Thumbnail>", u"auto"},
        {"false in double quotes", "<Thumbnail autoCapture=\"false\">x</Thumbnail>", u"auto"},
        {"False", "<Thumbnail autoCapture='False'>x</Thumbnail>", u"auto"},
        {"no attribute", "<Thumbnail>x</Thumbnail>", u"auto"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(metadataOf(thumbnail(row.element)).getScreenshotMode().value(), row.mode);
    }
}

TEST_F(KAppMetadataReaderTest, ReadsTheScreenshotFromADataUri) {
    const struct {
        const char* why;
        const char* text;
        const char16_t* format;
        std::vector<std::uint8_t> bytes;
    } rows[] = {
        {"plain", "data:image/png;base64,AAEC", u"png", {0, 1, 2}},
        {"the format as written", "data:image/JPeG;x=\xC3\xA9;base64,AA==", u"JPeG;x=\u00E9", {0}},
        {"the last of two markers splits", "data:image/a;base64,B;base64,AA==", u"a;base64,B", {0}},
        {"a line break cuts the payload", "data:image/png;base64,AAEC\rAAEC", u"png", {0, 1, 2}},
        {"entities", "data:image&#47;data:image/", u"", {}},
        {"escaped markers", "data:image/&lt;;base64,AA==", u"<", {0}},
        {"an empty payload", "data:image/png;base64,", u"png", {}},
        {"a line break before", "\ndata:image/png;base64,AAEC", u"", {}},
        {"upper case", "DATA:image/png;base64,AAEC", u"", {}},
        {"no marker", "data:image/png,AAEC", u"", {}},
        {"empty", "", u"", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const auto [format, bytes] =
            screenshotOf(thumbnail("<Thumbnail>" + std::string(row.text) + "</Thumbnail>"));
        EXPECT_EQ(format, row.format);
        EXPECT_EQ(bytes, row.bytes);
    }
    EXPECT_EQ(screenshotOf("x"), Screenshot());
}

TEST_F(KAppMetadataReaderTest, AnswersFromTheTextThatItReadAtFirst) {
    const ustring name = directory_.write("app.k", section("app:appDetails", "<Name>1</Name>"));
    const KAppMetadataReader reader(name);
    std::filesystem::remove(directory_.path() / "app.k");
    EXPECT_EQ(reader.readMetadata().getName().value(), u"1");
    EXPECT_EQ(reader.getFileName(), name);
    EXPECT_EQ(reader.getExtension(), u".k");
    EXPECT_THROW(KAppMetadataReader{name}, AppFileReaderInvalidFileName);
    EXPECT_THROW(KAppMetadataReader{u"app.K"}, AppFileReaderInvalidFileExtensionCase);
    EXPECT_THROW(KAppMetadataReader{u"app.kvpkg"}, AppFileReaderInvalidFileExtension);
}

TEST_F(KAppMetadataReaderTest, RefusesWhatIsNoRegularFileWithoutBlocking) {
    std::filesystem::create_directory(directory_.path() / "folder.k");
    ASSERT_EQ(::mkfifo((directory_.path() / "fifo.k").c_str(), 0600), 0);
    std::filesystem::create_symlink("/dev/zero", directory_.path() / "device.k");
    for (const char* name : {"folder.k", "fifo.k", "device.k"}) {
        SCOPED_TRACE(name);
        try {
            KAppMetadataReader reader(directory_.name(name));
            FAIL() << "was read";
        } catch (const AppFileReaderInvalidFileName& error) {
            EXPECT_EQ(error.getFileName(), directory_.name(name));
        }
    }
}

TEST_F(KAppMetadataReaderTest, RefusesAHugeFileBeforeItAsksForMemory) {
    const ustring name = directory_.write("app.k", "");
    for (const std::uint64_t size :
         {KAppMetadataReader::kLargestFile + 1, std::uint64_t{1} << 40}) {
        std::filesystem::resize_file(directory_.path() / "app.k", size);
        try {
            KAppMetadataReader reader(name);
            FAIL() << "was read";
        } catch (const AppFileReaderGenericException& error) {
            EXPECT_EQ(error.getFileName(), name);
            EXPECT_THAT(error.what(), HasSubstr("app.k: the file has " + std::to_string(size)));
        }
    }
}

TEST_F(KAppMetadataReaderTest, DecodesCharactersThatPiecesOfTheFileCut) {
    // The file is read in pieces of a power of two; these straddle every such border.
    for (const std::string character : {"\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xE2\x82", "\x80"}) {
        for (std::size_t shift = 0; shift < 4; ++shift) {
            const std::string name = std::string(shift, 'x') + repeated(character, 600'000);
            const auto read = metadataOf(section("app:appDetails", "<Name>" + name + "</Name>"));
            ASSERT_EQ(read.getName().value(), fl::i18n::utf8_to_ustring(name)) << shift;
        }
    }
}

}  // namespace
}  // namespace appserialization
