#include <appserialization/Exceptions.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <foundation/Base64.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/ClaimedSize.hpp"
#include "tests/support/TemporaryDirectory.hpp"

namespace appserialization {
namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

std::string section(const std::string& name, const std::string& body) {
    return "%[" + name + "]\n%{\n" + body + "\n%}\n";
}

// The fields in their order, with what holds a list in brackets.
ustring shown(const AppMetadata& metadata) {
    ustring text;
    for (const auto& [field, value] : metadata.toMap()) {
        if (value.which() == 0) {
            text += boost::get<appmetadata::OptionalString>(value).value() + u"|";
            continue;
        }
        text += u"[";
        for (const ustring& item : boost::get<appmetadata::OptionalStringList>(value).value())
            text += item + u"|";
        text += u"]";
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
        EXPECT_EQ(shown(metadataOf(file)), u"|||1.0||auto||R2025a|||Standard|[][][]");
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
                "<ImageRelativePaths>&lt;Path>p&lt;/Path></ImageRelativePaths>") +
        section("app:appDetails", "<Name>in the second section</Name>"));
    EXPECT_EQ(shown(metadata),
              u"N\u00E4me| Summary |Author|2|\nDescription\n|auto||M|R|id|Type|[A&lt;B|][<C|][p|]");
}

TEST_F(KAppMetadataReaderTest, DerivesTheScreenshotMode) {
    const struct {
        const char* why;
        const char* element;
        const char16_t* mode;
    } rows[] = {
        {"false with content", "<Thumbnail autoCapture='false'>x</Thumbnail>", u"manual"},
        {"false and empty", "<Thumbnail autoCapture='false'></Thumbnail>", u"none"},
        {"true", "<Thumbnail autoCapture='true'>x</Thumbnail>", u"auto"},
        {"padded false", "<Thumbnail autoCapture=' false'>x</Thumbnail>", u"auto"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(metadataOf(section("app:thumbnail", row.element)).getScreenshotMode().value(),
                  row.mode);
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
        {"the first line with a whole one counts, up to its end",
         "data:image/a\r\n;base64,\ndata:image/b;base64,AA==\rAA",
         u"b",
         {0}},
        {"escaped markers", "data:image/&lt;;base64,AA==", u"<", {0}},
        {"upper case", "DATA:image/png;base64,AAEC", u"", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const auto [format, bytes] = screenshotOf(
            section("app:thumbnail", "<Thumbnail>" + std::string(row.text) + "</Thumbnail>"));
        EXPECT_EQ(format, row.format);
        EXPECT_EQ(bytes, row.bytes);
        const ScreenshotSize size =
            KAppMetadataReader(directory_.name("app.k")).readScreenshotSize();
        EXPECT_EQ(size.format, row.format);
        EXPECT_EQ(size.bytes, row.bytes.size());
    }
    EXPECT_EQ(screenshotOf("x"), Screenshot());
}

TEST_F(KAppMetadataReaderTest, RefusesAMalformedScreenshotAlsoForItsSize) {
    const KAppMetadataReader reader(directory_.write(
        "app.k", section("app:thumbnail", "<Thumbnail>data:image/png;base64,AA\xFF=</Thumbnail>")));
    const auto isRefused = ThrowsMessage<foundation::crypto::utils::Base64Error>(
        "base64: invalid character at offset 2");
    EXPECT_THAT([&] { reader.readScreenshotAsBytes(); }, isRefused);
    EXPECT_THAT([&] { reader.readScreenshotSize(); }, isRefused);
}

TEST_F(KAppMetadataReaderTest, AnswersFromTheTextThatItReadAtFirst) {
    const ustring name = directory_.write("app.k", section("app:appDetails", "<Name>1</Name>"));
    const KAppMetadataReader reader(name);
    std::filesystem::remove(directory_.path() / "app.k");
    EXPECT_EQ(reader.readMetadata().getName().value(), u"1");
    EXPECT_EQ(reader.getFileName(), name);
    EXPECT_EQ(reader.getExtension(), u".k");
    EXPECT_THROW(KAppMetadataReader{name}, AppFileReaderInvalidFileName);
}

TEST_F(KAppMetadataReaderTest, RefusesWhatIsNoRegularFileWithoutBlocking) {
    std::filesystem::create_directory(directory_.path() / "folder.k");
    ASSERT_EQ(::mkfifo((directory_.path() / "fifo.k").c_str(), 0600), 0);
    std::filesystem::create_symlink("/dev/zero", directory_.path() / "device.k");
    for (const char* name : {"folder.k", "fifo.k", "device.k"})
        EXPECT_THROW(KAppMetadataReader{directory_.name(name)}, AppFileReaderInvalidFileName)
            << name;
}

TEST_F(KAppMetadataReaderTest, RefusesAHugeFileBeforeItAsksForMemory) {
    const ustring name = directory_.write("app.k", "");
    std::filesystem::resize_file(directory_.path() / "app.k", KAppMetadataReader::kLargestFile + 1);
    EXPECT_THAT([&] { KAppMetadataReader reader(name); },
                ThrowsMessage<AppFileReaderGenericException>(HasSubstr("app.k: the file has ")));
}

TEST_F(KAppMetadataReaderTest, ReadsToTheEndWhateverSizeTheSystemGives) {
    const std::string text = section("app:appDetails", "<Name>1</Name>");
    const ustring name = directory_.write("app.k", text);
    {
        const test_support::ClaimedSize unknown(0);
        EXPECT_EQ(KAppMetadataReader(name).readMetadata().getName().value(), u"1");
    }
    for (const std::uint64_t size : {text.size() - 1, text.size() + 1}) {
        const test_support::ClaimedSize claimed(size);
        EXPECT_THAT([&] { KAppMetadataReader reader(name); },
                    ThrowsMessage<AppFileReaderGenericException>(
                        HasSubstr("app.k: the file was changed while it was read; try again")));
    }
}

TEST_F(KAppMetadataReaderTest, FindsMarkersThatPiecesOfTheFileCut) {
    // The file is read in pieces of a power of two; these markers straddle such a border.
    constexpr std::size_t kBorder = 1 << 18;
    const std::string sections[] = {
        section("app:appDetails", "<Version>x</Version>"),
        section("app:internalData", "<AppType>x</AppType>"),
        section("app:thumbnail", "<Thumbnail autoCapture='false'>x</Thumbnail>")};
    for (const std::string& text : sections) {
        const ustring expected = shown(metadataOf(text));
        for (std::size_t before = 0; before <= text.find(']'); ++before)
            ASSERT_EQ(shown(metadataOf(std::string(kBorder - before, 'x') + text)), expected)
                << text << before;
    }
}

}  // namespace
}  // namespace appserialization
