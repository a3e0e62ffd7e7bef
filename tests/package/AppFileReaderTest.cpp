#include <appserialization/AppFileReader.hpp>
#include <appserialization/Exceptions.hpp>
#include <appserialization/KVPKGMetadataReader.hpp>
#include <foundation/Exceptions.hpp>
#include <opc/Exception.hpp>
#include <opc/Package.hpp>
#include <opc/Streams.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "tests/support/AppPackage.hpp"
#include "tests/support/TemporaryDirectory.hpp"

namespace appserialization {
namespace {

using test_support::AppPackage;
using test_support::goodPackage;
using test_support::readFile;
using testing::IsEmpty;
using testing::StartsWith;

class AppFileReaderTest : public testing::Test {
protected:
    ustring write(const AppPackage& package) {
        return directory_.write("app.kvpkg", package.bytes());
    }
    // What the call throws: a generic exception about the file, in the form that can be carried on.
    std::string genericError(const ustring& file, const std::function<void()>& call) {
        try {
            call();
        } catch (const AppFileReaderGenericException& error) {
            EXPECT_EQ(error.getFileName(), file);
            EXPECT_NE(dynamic_cast<const foundation::core::except::InternalException*>(&error),
                      nullptr);
            return error.what();
        }
        return "no exception";
    }

    test_support::TemporaryDirectory directory_;
};

TEST_F(AppFileReaderTest, WrapsWhatIsNoPackage) {
    std::filesystem::create_directory(directory_.path() / "directory.kvpkg");
    ASSERT_EQ(::mkfifo((directory_.path() / "fifo.kvpkg").c_str(), 0600), 0);
    const std::string start =
        "Internal exception in reading Visual App file: " + directory_.path().string();
    const struct {
        ustring name;
        const char* complaint;
    } rows[] = {
        {directory_.write("text.kvpkg", "not a zip"), "/text.kvpkg: is not a zip file"},
        {directory_.name("directory.kvpkg"), "/directory.kvpkg: is not a regular file"},
        {directory_.name("fifo.kvpkg"), "/fifo.kvpkg: is not a regular file"},
    };
    for (const auto& row : rows) {
        EXPECT_THAT(genericError(row.name, [&] { AppFileReader reader(row.name); }),
                    StartsWith(start + row.complaint));
        EXPECT_THROW(KVPKGMetadataReader{row.name}, opc::Exception) << "which translates nothing";
    }
}

TEST_F(AppFileReaderTest, ChecksTheNameFirst) {
    EXPECT_THROW(AppFileReader(directory_.name("app.KvPkg")),
                 AppFileReaderInvalidFileExtensionCase);
    EXPECT_THROW(KVPKGMetadataReader(directory_.name("app.k")), AppFileReaderInvalidFileExtension);
    EXPECT_THROW(AppFileReader(directory_.name("app.kvpkg")), AppFileReaderInvalidFileName);
}

// What else needs the model is read from the hostile files.
TEST_F(AppFileReaderTest, MissesTheModelWhenItIsNeeded) {
    const ustring app = write(goodPackage().without(u"/lumenforge/appModel.kvd"));
    const AppFileReader reader(app);
    const ustring copy = directory_.name("copy");
    const std::function<void()> calls[] = {
        [&] { reader.getKORVALCodeText(); },
        [&] { reader.copyAppDataToTempFile(copy); },
        [&] { KVPKGMetadataReader{app}; },
    };
    for (const auto& call : calls)
        EXPECT_EQ(genericError(app, call), "File is missing App Model part");
    EXPECT_FALSE(reader.hasParts());
    EXPECT_FALSE(std::filesystem::exists(copy));
}

TEST_F(AppFileReaderTest, SaysOnlyThatTheCodeCannotBeRead) {
    const ustring app = write(goodPackage().with(u"/korval/code.k", "x = '\xFF';"));
    const AppFileReader reader(app);
    EXPECT_EQ(genericError(app, [&] { reader.getKORVALCodeText(); }), "Failed to read KORVAL code");
    EXPECT_TRUE(reader.hasParts()) << "stays usable";
}

TEST_F(AppFileReaderTest, AnAppWithoutAScreenshotEmptiesWhatIsGiven) {
    const AppFileReader reader(
        write(goodPackage().withoutRelationships(test_support::kScreenshotType)));
    std::vector<std::uint8_t> image = {1};
    ustring format = u"old";
    reader.getAppScreenshot(image, format);
    EXPECT_THAT(image, IsEmpty());
    EXPECT_EQ(format, u"");
}

TEST_F(AppFileReaderTest, ReadsNoneOfSeveralMetadataParts) {
    const AppFileReader reader(
        write(goodPackage()
                  .with(u"/metadata/other.xml", "<root><description>Other</description></root>")
                  .withRelationship(test_support::kMetadataType, u"/metadata/other.xml")));
    EXPECT_EQ(reader.getAppMetadata().getDescription().value(), u"");
    EXPECT_EQ(reader.getAppMetadata().getName().value(), u"Good App") << "a core property";
}

TEST_F(AppFileReaderTest, ReadsNoScreenshotThatIsTooLarge) {
    const ustring app = write(goodPackage());
    const opc::zippackage::ZipPhysicalPackage file(app, true);
    opc::model::Package package(file);
    package.open(opc::interfaces::OpenMode::Edit);
    const auto shot = package.getRelationshipsByType(test_support::kScreenshotType).front();
    const auto stream = package.getTarget(shot).getOutputStream();
    const std::vector<std::byte> zeros(std::size_t{1} << 20);
    for (int i = 0; i < 257; ++i)
        stream->write(zeros);
    stream->flush();
    package.close();
    std::vector<std::uint8_t> image;
    ustring format;
    EXPECT_THAT([&] { AppFileReader(app).getAppScreenshot(image, format); },
                testing::ThrowsMessage<opc::Exception>(testing::HasSubstr(
                    "the screenshot has 269484032 bytes, but may have at most")));
}

TEST_F(AppFileReaderTest, CopiesTheFirstModelOverWhatIsThere) {
    const ustring app =
        write(goodPackage().withRelationship(test_support::kModelType, u"/missing.kvd"));
    const ustring copy = directory_.write("copy", std::string(400'000, 'x'));
    AppFileReader(app).copyAppDataToTempFile(copy);
    EXPECT_EQ(readFile(directory_.path() / "copy"), std::string("model \0 bytes", 13));
}

TEST_F(AppFileReaderTest, RefusesWhereTheModelCannotGo) {
    const ustring app = write(goodPackage());
    const std::string before = readFile(directory_.path() / "app.kvpkg");
    std::filesystem::create_symlink("app.kvpkg", directory_.path() / "link");
    std::filesystem::create_hard_link(directory_.path() / "app.kvpkg", directory_.path() / "same");
    const AppFileReader reader(app);
    const char* const isApp = "app.kvpkg: the app model cannot be copied over the app file that";
    const std::pair<ustring, const char*> rows[] = {
        {u"", "cannot write to \"\": No such file or directory"},
        {app, isApp},
        {directory_.name("link"), isApp},
        {directory_.name("same"), isApp},
        {directory_.name(std::string(300, 'n')), "cannot write to "},
        {u"/dev/full", "cannot write to \"/dev/full\": No space left on device"},
    };
    for (const auto& row : rows) {
        EXPECT_THAT([&] { reader.copyAppDataToTempFile(row.first); },
                    testing::ThrowsMessage<opc::Exception>(testing::HasSubstr(row.second)));
    }
    EXPECT_TRUE(readFile(directory_.path() / "app.kvpkg") == before);
}

TEST_F(AppFileReaderTest, CopiesNothingThroughALinkThatAnotherUserMayHavePlanted) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can make another user's link";
    const AppFileReader reader(write(goodPackage()));
    const std::filesystem::path folder = directory_.path() / "for all", link = folder / "link";
    std::filesystem::create_directory(folder);
    std::filesystem::permissions(folder, std::filesystem::perms{01777});
    for (const char* target : {"precious", "new"}) {
        directory_.write("precious", "own");
        std::filesystem::create_symlink(directory_.path() / target, link);
        ASSERT_EQ(::lchown(link.c_str(), 65534, 65534), 0);
        EXPECT_THAT([&] { reader.copyAppDataToTempFile(directory_.name("for all/link")); },
                    testing::ThrowsMessage<opc::Exception>(testing::HasSubstr("cannot write to")));
        ASSERT_EQ(::lchown(link.c_str(), 0, 0), 0);
        EXPECT_NO_THROW(reader.copyAppDataToTempFile(directory_.name("for all/link")));
        EXPECT_NE(readFile(directory_.path() / target), "own");
        std::filesystem::remove(link);
    }
}

TEST_F(AppFileReaderTest, AClosedReaderStillReadsByName) {
    AppFileReader reader(write(goodPackage()));
    reader.close();
    EXPECT_EQ(reader.getAppMetadata().getName().value(), u"Good App");
    EXPECT_THROW(reader.hasParts(), opc::Exception);
    EXPECT_THROW(reader.getKORVALCodeText(), opc::Exception);
    EXPECT_THROW(reader.copyAppDataToTempFile(directory_.name("copy")), opc::Exception);
    std::filesystem::rename(directory_.path() / "app.kvpkg", directory_.path() / "renamed.kvpkg");
    write(goodPackage());
    EXPECT_THAT([&] { reader.getAppMetadata(); },
                testing::ThrowsMessage<opc::Exception>(
                    testing::HasSubstr("app.kvpkg: someone else created, changed or removed")));
}

TEST_F(AppFileReaderTest, ReadsOneVersionWhateverTakesItsName) {
    const AppFileReader reader(write(goodPackage()));
    std::filesystem::rename(directory_.path() / "app.kvpkg", directory_.path() / "renamed.kvpkg");
    write(goodPackage().with(u"/korval/code.k", "x = 'theirs';").withMetadata(""));
    const auto written = std::filesystem::path(directory_.path() / "app.kvpkg");
    const std::string theirs = readFile(written);
    EXPECT_NE(reader.getKORVALCodeText(), u"x = 'theirs';");
    EXPECT_EQ(reader.getAppMetadata().getDescription().value(), u"Good Description");
    for (const char* name : {"app.kvpkg", "renamed.kvpkg"}) {
        EXPECT_THAT([&] { reader.copyAppDataToTempFile(directory_.name(name)); },
                    testing::ThrowsMessage<opc::Exception>(testing::HasSubstr("cannot be copied")));
    }
    EXPECT_TRUE(readFile(written) == theirs);
    std::filesystem::remove(written);
    std::vector<std::uint8_t> bytes;
    ustring format;
    reader.getAppScreenshot(bytes, format);
    EXPECT_FALSE(bytes.empty());
}

}  // namespace
}  // namespace appserialization
