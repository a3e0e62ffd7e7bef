#include <appserialization/AppFileReader.hpp>
#include <appserialization/Exceptions.hpp>
#include <foundation/Exceptions.hpp>
#include <opc/Exception.hpp>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <functional>

#include "tests/support/AppPackage.hpp"
#include "tests/support/TemporaryDirectory.hpp"

namespace appserialization {
namespace {

using test_support::AppPackage;
using test_support::goodPackage;
using test_support::readFile;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* kMissingModel = "File is missing App Model part";

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
    const std::string package = goodPackage().bytes();
    const ustring names[] = {
        directory_.write("text.kvpkg", "not a zip"),
        directory_.write("empty.kvpkg", ""),
        directory_.write("short.kvpkg", package.substr(0, package.size() - 1)),
        directory_.name("directory.kvpkg"),
        directory_.name("fifo.kvpkg"),
    };
    for (const ustring& name : names) {
        const std::string error = genericError(name, [&] { AppFileReader reader(name); });
        EXPECT_THAT(error, StartsWith("Internal exception in reading Visual App file: "));
        EXPECT_THAT(error, testing::HasSubstr(directory_.path().string()));
    }
}

TEST_F(AppFileReaderTest, ChecksTheNameFirst) {
    EXPECT_THROW(AppFileReader(directory_.name("app.KvPkg")),
                 AppFileReaderInvalidFileExtensionCase);
    EXPECT_THROW(AppFileReader(u""), AppFileReaderInvalidFileExtension);
    EXPECT_THROW(AppFileReader(directory_.name("app.kvpkg")), AppFileReaderInvalidFileName);
    const test_support::WorkingDirectory here;
    const ustring app = here.write("app.kvpkg", goodPackage().bytes());
    EXPECT_EQ(AppFileReader(u"app.kvpkg").getFileName(), app);
}

TEST_F(AppFileReaderTest, MissesTheModelWhenItIsNeeded) {
    const ustring app = write(goodPackage().without(u"/lumenforge/appModel.kvd"));
    const AppFileReader reader(app);
    EXPECT_FALSE(reader.hasParts());
    std::vector<std::uint8_t> image;
    ustring format;
    const std::function<void()> calls[] = {
        [&] { reader.getKORVALCodeText(); },
        [&] { reader.getAppMetadata(); },
        [&] { reader.getAppScreenshot(image, format); },
        [&] { reader.copyAppDataToTempFile(directory_.name("copy")); },
    };
    for (const auto& call : calls)
        EXPECT_EQ(genericError(app, call), kMissingModel);
    EXPECT_FALSE(std::filesystem::exists(directory_.path() / "copy"));
}

TEST_F(AppFileReaderTest, SaysOnlyThatTheCodeCannotBeRead) {
    EXPECT_EQ(AppFileReader(write(goodPackage())).getKORVALCodeText(), u"x = 1;\n");
    const AppPackage damaged[] = {
        goodPackage().without(u"/korval/code.k"),
        goodPackage().withoutRelationships(test_support::kCodeType),
        goodPackage().with(u"/korval/code.k", "x = '\xFF';"),
    };
    for (const AppPackage& package : damaged) {
        const ustring app = write(package);
        const AppFileReader reader(app);
        EXPECT_EQ(genericError(app, [&] { reader.getKORVALCodeText(); }),
                  "Failed to read KORVAL code");
        EXPECT_TRUE(reader.hasParts()) << "stays usable";
    }
}

TEST_F(AppFileReaderTest, ReplacesWhatTheScreenshotsArgumentsHeld) {
    std::vector<std::uint8_t> image = {1};
    ustring format = u"old";
    AppFileReader(write(goodPackage())).getAppScreenshot(image, format);
    EXPECT_EQ(std::string(image.begin(), image.end()), "image");
    EXPECT_EQ(format, u"png");
    AppFileReader(write(goodPackage().withoutRelationships(test_support::kScreenshotType)))
        .getAppScreenshot(image, format);
    EXPECT_THAT(image, IsEmpty());
    EXPECT_EQ(format, u"");
}

TEST_F(AppFileReaderTest, CopiesTheModelByteForByte) {
    std::string model(300'000, '\0');
    for (std::size_t i = 0; i < model.size(); i += 7)
        model[i] = static_cast<char>(i * i >> 3);
    const ustring app = write(goodPackage()
                                  .with(u"/lumenforge/appModel.kvd", model)
                                  .withRelationship(test_support::kModelType, u"/missing.kvd"));
    const ustring copy = directory_.write("copy", std::string(400'000, 'x'));
    AppFileReader(app).copyAppDataToTempFile(copy);  // the first relationship is taken
    EXPECT_TRUE(readFile(directory_.path() / "copy") == model);
}

TEST_F(AppFileReaderTest, RefusesWhereTheModelCannotGo) {
    const ustring app = write(goodPackage());
    const std::string before = readFile(directory_.path() / "app.kvpkg");
    std::filesystem::create_symlink("app.kvpkg", directory_.path() / "link");
    std::filesystem::create_hard_link(directory_.path() / "app.kvpkg", directory_.path() / "same");
    const AppFileReader reader(app);
    const std::string top = directory_.path();
    const char* const isApp = "app.kvpkg: the app model cannot be copied over the app file that";
    const struct {
        ustring destination;
        std::string complaint;
    } rows[] = {
        {u"", "cannot write to \"\": No such file or directory"},
        {directory_.name("missing/copy"),
         "cannot write to \"" + top + "/missing/copy\": No such file or directory"},
        {directory_.name(""), "cannot write to \"" + top + "/\": Is a directory"},
        {app, isApp},
        {directory_.name("link"), isApp},
        {directory_.name("same"), isApp},
        {u"/dev/full", "cannot write to \"/dev/full\": No space left on device"},
    };
    for (const auto& row : rows) {
        EXPECT_THAT([&] { reader.copyAppDataToTempFile(row.destination); },
                    testing::ThrowsMessage<opc::Exception>(testing::HasSubstr(row.complaint)));
    }
    EXPECT_TRUE(readFile(directory_.path() / "app.kvpkg") == before);

    const AppFileReader unrelated(
        write(goodPackage().withoutRelationships(test_support::kModelType)));
    EXPECT_THROW(unrelated.copyAppDataToTempFile(directory_.name("copy")), std::out_of_range);
}

TEST_F(AppFileReaderTest, AClosedReaderStillReadsByName) {
    const ustring app = write(goodPackage());
    AppFileReader reader(app);
    reader.close();
    EXPECT_EQ(reader.getFileName(), app);
    EXPECT_EQ(reader.getAppMetadata().getName().value(), u"Good App");
    EXPECT_THROW(reader.hasParts(), opc::Exception);
    EXPECT_THROW(reader.getKORVALCodeText(), opc::Exception);
    EXPECT_THROW(reader.copyAppDataToTempFile(directory_.name("copy")), opc::Exception);
    EXPECT_THROW(reader.close(), opc::Exception);
}

}  // namespace
}  // namespace appserialization
