#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <appserialization/KVPKGMetadataReader.hpp>
#include <foundation/ustring.hpp>
#include <opc/Exception.hpp>

#include <gmock/gmock.h>

#include <functional>

#include "tests/package/DifferingFields.hpp"
#include "tests/package/PackageContents.hpp"
#include "tests/support/AppPackage.hpp"
#include "tests/support/TemporaryDirectory.hpp"

namespace appserialization {
namespace {

using test_support::AppPackage;
using test_support::differingFields;
using test_support::goodPackage;
using test_support::PackageContents;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char16_t* kModelPart = u"/lumenforge/appModel.kvd";
constexpr const char16_t* kMetadataPart = u"/metadata/appMetadata.xml";

class AppFileWriterTest : public testing::Test {
protected:
    ustring good(const AppPackage& package = goodPackage()) {
        return directory_.write("app.kvpkg", package.bytes());
    }
    std::string bytes() const { return test_support::readFile(directory_.path() / "app.kvpkg"); }
    // Opens the file for editing (it need not exist), changes it and saves it.
    void edit(const std::function<void(AppFileWriter&)>& change) {
        AppFileWriter writer(app_, false);
        change(writer);
        writer.close();
    }
    void setMetadata(const AppMetadata& metadata) {
        edit([&](AppFileWriter& writer) { writer.setAppMetadata(metadata); });
    }

    test_support::TemporaryDirectory directory_;
    const ustring app_ = directory_.name("app.kvpkg");
    const ustring model_ = directory_.write("model.kvd", std::string("new \0 model", 11));
};

AppMetadata filledWith(const ustring& text) {
    const std::vector<ustring> list = {text, u"", text};
    AppMetadata metadata;
    metadata.setName(text);
    metadata.setSummary(text);
    metadata.setAuthor(text);
    metadata.setVersion(text);
    metadata.setDescription(text);
    metadata.setScreenshotMode(text);
    metadata.setKVPKGVersion(text);
    metadata.setMinimumSupportedKORVALRelease(text);
    metadata.setUuid(text);
    metadata.setAppType(text);
    metadata.setRequiredProducts(list);
    metadata.setUserComponents(list);
    metadata.setImageRelativePaths(list);
    return metadata;
}

TEST_F(AppFileWriterTest, EveryFieldReadsBackAsWritten) {
    const struct {
        const char* why;
        ustring text;
    } rows[] = {
        {"plain", u"Tide Table"},
        {"empty is not absent", u""},
        {"line ends and tabs", u"\r\na\rb\nc\td\r"},
        {"mark-up", u"<a href=\"x\">'&amp;' ]]> <![CDATA[ -->"},
        {"blanks at both ends", u"  both ends \t"},
        {"nothing but blanks", u" \n "},
        {"beyond the basic plane", u"\U0001F30A \u00e9e\u0301 \u4e2d\U0010FFFD\uFFFD"},
        {"1 MiB", ustring(1 << 20, u'x')},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        AppFileWriter writer(app_, true);
        writer.setAppModelFromFile(model_);
        const AppMetadata written = filledWith(row.text);
        writer.setAppMetadata(written);
        writer.close();

        AppMetadata expected = written;
        expected.setKORVALRelease(u"R2026b");
        EXPECT_THAT(differingFields(AppFileReader(app_).getAppMetadata(), expected), IsEmpty());
    }
}

TEST_F(AppFileWriterTest, AnEmptyRecordWritesDefaultsAndOnlyTheMinimalProperties) {
    setMetadata(AppMetadata());
    const PackageContents package(app_);
    const std::string& xml = package.parts.at(kMetadataPart);
    EXPECT_THAT(xml, HasSubstr("standalone=\"yes\""));
    const std::string start = xml.substr(xml.find("<metadata"));
    EXPECT_EQ(start.substr(0, start.find("</metadata>")),
              "<metadata xmlns=\"http://schemas.quorvane.com/lumenForge/app/2017/appMetadata\">"
              "<description></description><KVPKGVersion>1</KVPKGVersion>"
              "<minimumSupportedKORVALRelease>R2016a</minimumSupportedKORVALRelease>"
              "<screenshotMode>auto</screenshotMode><uuid></uuid>"
              "<AppType>Standard</AppType>"
              "<componentProducts/><imageRelativePaths/><userComponents/>");
    EXPECT_EQ(package.contentTypes.at(kMetadataPart),
              u"application/vnd.quorvane.korval.lumenForge.appMetadata+xml");
    EXPECT_THAT(package.targets(test_support::kMetadataType), ElementsAre(kMetadataPart));

    EXPECT_EQ(package.properties.getContentType(), u"application/vnd.quorvane.korval.app");
    EXPECT_EQ(package.properties.getContentTypeFriendlyName(), u"KORVAL App");
    EXPECT_EQ(package.properties.getKORVALRelease(), u"R2026b");
    EXPECT_TRUE(package.properties.getLastModifiedTime());
    EXPECT_EQ(package.properties.getKORVALReleaseInfo()->toString(), u"R2026b");
    EXPECT_FALSE(package.properties.getTitle() || package.properties.getDescription() ||
                 package.properties.getVersion() || package.properties.getCreatedBy());
}

TEST_F(AppFileWriterTest, EachFieldHasItsPlace) {
    AppMetadata metadata;
    metadata.setName(u"name");
    metadata.setSummary(u"summary");
    metadata.setAuthor(u"author");
    metadata.setVersion(u"version");
    metadata.setDescription(u"description");
    metadata.setScreenshotMode(u"mode");
    metadata.setKVPKGVersion(u"format");
    metadata.setMinimumSupportedKORVALRelease(u"minimum");
    metadata.setUuid(u"uuid");
    metadata.setAppType(u"type");
    metadata.setRequiredProducts({u"a", u"a"});
    metadata.setImageRelativePaths({u"b"});
    metadata.setUserComponents({u"c"});
    setMetadata(metadata);
    const PackageContents package(app_);
    EXPECT_THAT(package.parts.at(kMetadataPart),
                HasSubstr("<description>description</description>"
                          "<KVPKGVersion>format</KVPKGVersion>"
                          "<minimumSupportedKORVALRelease>minimum</minimumSupportedKORVALRelease>"
                          "<screenshotMode>mode</screenshotMode><uuid>uuid</uuid>"
                          "<AppType>type</AppType>"
                          "<componentProducts><product id=\"a\"/><product id=\"a\"/>"
                          "</componentProducts><imageRelativePaths><imageRelativePath path=\"b\"/>"
                          "</imageRelativePaths><userComponents><userComponent class=\"c\"/>"
                          "</userComponents></metadata>"));
    EXPECT_EQ(package.properties.getTitle(), u"name");
    EXPECT_EQ(package.properties.getDescription(), u"summary");
    EXPECT_EQ(package.properties.getCreatedBy(), u"author");
    EXPECT_EQ(package.properties.getVersion(), u"version");
}

TEST_F(AppFileWriterTest, AbsentTextsKeepTheirValuesAndListsDoNot) {
    good();
    edit([&](AppFileWriter& writer) {
        writer.setAppMetadata(filledWith(u"first"));
        writer.setAppMetadata(AppMetadata());  // merged with what was set in the same session
    });
    setMetadata(AppMetadata());  // and with what was saved
    AppMetadata expected = filledWith(u"first");
    expected.setKORVALRelease(u"R2026b");
    expected.setRequiredProducts({});
    expected.setUserComponents({});
    expected.setImageRelativePaths({});
    EXPECT_THAT(differingFields(AppFileReader(app_).getAppMetadata(), expected), IsEmpty());
}

TEST_F(AppFileWriterTest, AnEarlierElementWithoutTextGivesTheDefault) {
    good(goodPackage().withMetadata("<AppType/><uuid><![CDATA[ id ]]></uuid><description/>"));
    AppMetadata metadata;
    metadata.setScreenshotMode(u"");
    setMetadata(metadata);
    const AppMetadata read = AppFileReader(app_).getAppMetadata();
    EXPECT_EQ(read.getAppType().value(), u"Standard");
    EXPECT_EQ(read.getUuid().value(), u" id ");
    EXPECT_EQ(read.getScreenshotMode().value(), u"");
}

TEST_F(AppFileWriterTest, TheFirstOfTwoMetadataPartsIsRewritten) {
    const std::string second = "<metadata><uuid>second</uuid></metadata>";
    good(goodPackage()
             .with(u"/metadata/second.xml", second)
             .withRelationship(test_support::kMetadataType, u"/metadata/second.xml"));
    AppMetadata metadata;
    metadata.setUuid(u"new");
    setMetadata(metadata);
    const PackageContents package(app_);
    EXPECT_THAT(package.parts.at(kMetadataPart), HasSubstr("<uuid>new</uuid>"));
    EXPECT_EQ(package.parts.at(u"/metadata/second.xml"), second);
    EXPECT_EQ(AppFileReader(app_).getAppMetadata().getUuid().value(), u"");
}

TEST_F(AppFileWriterTest, ReleaseInfoIsTheHostsUnlessTheRecordNamesAnother) {
    const struct {
        const char* why;
        boost::optional<ustring> release;
        const char16_t* expected;
    } rows[] = {
        {"absent", boost::none, u"R2026b"},
        {"the running one", ustring(u"R2026b"), u"R2026b"},
        {"another", ustring(u"R2016a"), u"R2016a (legacy)"},
        {"case counts", ustring(u"r2026b"), u"r2026b (legacy)"},
        {"empty", ustring(), u" (legacy)"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        AppMetadata metadata;
        if (row.release) metadata.setKORVALRelease(*row.release);
        setMetadata(metadata);
        const PackageContents package(app_);
        EXPECT_EQ(package.properties.getKORVALReleaseInfo()->toString(), row.expected);
        EXPECT_EQ(package.properties.getKORVALRelease(), u"R2026b");
    }
}

TEST_F(AppFileWriterTest, RefusesTextThatXmlCannotHoldAndChangesNothing) {
    const ustring bell(u"bad \u0007");
    AppMetadata name, description, release, list;
    name.setName(bell);
    description.setDescription(u"unpaired \xD800");
    release.setKORVALRelease(u"\uFFFE");
    list.setUserComponents({u"good", bell});
    const struct {
        const AppMetadata& metadata;
        const char* field;
    } rows[] = {
        {name, "Name"},
        {description, "Description"},
        {release, "KORVALRelease"},
        {list, "UserComponents[1]"},
    };
    good();
    const std::string before = bytes();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.field);
        edit([&](AppFileWriter& writer) {
            try {
                writer.setAppMetadata(row.metadata);
                ADD_FAILURE() << "was taken";
            } catch (const opc::Exception& refused) {
                EXPECT_THAT(refused.what(), HasSubstr(row.field));
            }
        });
        EXPECT_TRUE(bytes() == before);
    }
}

TEST_F(AppFileWriterTest, AnEarlierMetadataPartThatIsNoXmlStopsTheWrite) {
    good(goodPackage().with(kMetadataPart, "<metadata>"));
    const std::string before = bytes();
    edit([&](AppFileWriter& writer) {
        EXPECT_THROW(writer.setAppMetadata(filledWith(u"new")), opc::Exception);
    });
    EXPECT_TRUE(bytes() == before);
}

TEST_F(AppFileWriterTest, CreatesOrKeepsAsAsked) {
    AppFileWriter(app_, false).close();
    EXPECT_THAT(PackageContents(app_).targets(test_support::kModelType), IsEmpty());
    EXPECT_EQ(PackageContents(app_).properties.getContentTypeFriendlyName(), u"KORVAL App");

    good();
    const std::string before = bytes();
    AppFileWriter(app_, false).close();
    EXPECT_TRUE(bytes() == before) << "an edit that changes nothing";
    { AppFileWriter unsaved(app_, true); }
    EXPECT_TRUE(bytes() == before) << "a writer that is not closed";

    edit([&](AppFileWriter& writer) { writer.setAppModelFromFile(model_); });
    PackageContents edited(app_);
    EXPECT_EQ(edited.parts.at(kModelPart), std::string("new \0 model", 11));
    EXPECT_EQ(edited.parts.at(u"/metadata/appScreenshot.png"), "image");

    AppFileWriter(app_, true).close();
    EXPECT_FALSE(PackageContents(app_).parts.contains(kModelPart));
}

TEST_F(AppFileWriterTest, TheModelIsOnePartHoweverOftenItIsSet) {
    edit([&](AppFileWriter& writer) {
        writer.setAppModelFromFile(model_);
        writer.setAppModelFromFile(directory_.write("second", "second"));
    });
    const PackageContents package(app_);
    EXPECT_EQ(package.parts.at(kModelPart), "second");
    EXPECT_EQ(package.contentTypes.at(kModelPart),
              u"application/vnd.quorvane.korval.lumenForge.appModel+kvd");
    EXPECT_THAT(package.targets(test_support::kModelType), ElementsAre(kModelPart));
}

TEST_F(AppFileWriterTest, WritesThroughARelationshipToAnotherName) {
    good(goodPackage()
             .without(kModelPart)
             .with(u"/odd/name.kvd", "old")
             .withoutRelationships(test_support::kModelType)
             .withRelationship(test_support::kModelType, u"odd/name.kvd"));
    edit([&](AppFileWriter& writer) { writer.setAppModelFromFile(model_); });
    const PackageContents package(app_);
    EXPECT_EQ(package.parts.at(u"/odd/name.kvd"), std::string("new \0 model", 11));
    EXPECT_FALSE(package.parts.contains(kModelPart));
    EXPECT_THAT(package.targets(test_support::kModelType), ElementsAre(u"odd/name.kvd"));
}

TEST_F(AppFileWriterTest, AModelFileThatDoesNotOpenLeavesTheModel) {
    for (const ustring& missing : {directory_.name("missing"), ustring()}) {
        good();
        edit([&](AppFileWriter& writer) { writer.setAppModelFromFile(missing); });
        EXPECT_EQ(PackageContents(app_).parts.at(kModelPart), std::string("model \0 bytes", 13));

        AppFileWriter fresh(app_, true);
        fresh.setAppModelFromFile(missing);
        fresh.close();
        EXPECT_EQ(PackageContents(app_).parts.at(kModelPart), "");
    }
    // A directory opens, and then cannot be read.
    AppFileWriter writer(app_, false);
    EXPECT_THAT(
        [&] { writer.setAppModelFromFile(directory_.name(".")); },
        testing::ThrowsMessage<opc::Exception>(
            "cannot read to the end of \"" + directory_.path().string() + "/.\": Is a directory"));
}

TEST_F(AppFileWriterTest, CodeMayBeSetInTheMiddle) {
    const ustring code = u"  x = 'ä \U0001F30A';\r\ny = 1;\n\r";
    AppFileWriter writer(app_, true);
    writer.setAppMetadata(filledWith(u"kept"));
    writer.setKORVALCodeText(u"first");
    writer.setAppModelFromFile(model_);
    writer.setKORVALCodeText(code);
    writer.setAppScreenshot({1, 2, 3}, u"png");
    writer.close();

    const AppFileReader reader(app_);
    EXPECT_EQ(reader.getKORVALCodeText(), code);
    EXPECT_EQ(reader.getAppMetadata().getName().value(), u"kept");
    const PackageContents package(app_);
    EXPECT_EQ(package.parts.at(kModelPart), std::string("new \0 model", 11));
    EXPECT_TRUE(package.parts.contains(u"/metadata/appScreenshot.png"));

    edit([&](AppFileWriter& again) { again.setKORVALCodeText(u""); });
    EXPECT_EQ(AppFileReader(app_).getKORVALCodeText(), u"");
}

TEST_F(AppFileWriterTest, IsClosedWhenTheCodeIsRefusedButKeepsWhatItSaved) {
    AppFileWriter writer(app_, true);
    writer.setAppModelFromFile(model_);
    EXPECT_THROW(writer.setKORVALCodeText(u"unpaired \xDC00"), std::exception);
    EXPECT_THROW(writer.close(), opc::Exception);
    EXPECT_TRUE(AppFileReader(app_).hasParts());
}

TEST_F(AppFileWriterTest, AClosedWriterNamesTheCallAndTheFile) {
    const struct {
        const char* method;
        std::function<void(AppFileWriter&)> call;
    } rows[] = {
        {"close", [](AppFileWriter& writer) { writer.close(); }},
        {"setKORVALCodeText", [](AppFileWriter& writer) { writer.setKORVALCodeText(u""); }},
        {"setAppModelFromFile", [](AppFileWriter& writer) { writer.setAppModelFromFile(u""); }},
        {"setAppMetadata", [](AppFileWriter& writer) { writer.setAppMetadata({}); }},
        {"setAppScreenshot", [](AppFileWriter& writer) { writer.setAppScreenshot({}, u""); }},
    };
    AppFileWriter writer(app_, true);
    writer.close();
    std::filesystem::create_directory(directory_.path() / "gone");
    AppFileWriter failed(directory_.name("gone/app.kvpkg"), true);
    std::filesystem::remove(directory_.path() / "gone");
    EXPECT_THROW(failed.close(), opc::Exception);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.method);
        EXPECT_THROW(row.call(failed), opc::Exception) << "after a save that failed";
        try {
            row.call(writer);
            ADD_FAILURE() << "was taken";
        } catch (const opc::Exception& refused) {
            EXPECT_THAT(refused.what(), HasSubstr("app.kvpkg: " + std::string(row.method) + "()"));
        }
    }
}

TEST_F(AppFileWriterTest, TheScreenshotsFormatDecidesItsNameAndType) {
    const struct {
        ustring format;
        const char16_t *part, *contentType;
    } rows[] = {
        {u"png", u"/metadata/appScreenshot.png", u"image/png"},
        {u"JPG", u"/metadata/appScreenshot.jpg", u"image/jpeg"},
        {u"Jpeg", u"/metadata/appScreenshot.jpeg", u"image/jpeg"},
        {u"gif", u"/metadata/appScreenshot.gif", u"image/gif"},
        {u"tiff", u"/metadata/appScreenshot.png", u"image/png"},
        {u"", u"/metadata/appScreenshot.png", u"image/png"},
        {ustring(1024, u'a') + u"\u00e9", u"/metadata/appScreenshot.png", u"image/png"},
    };
    good(goodPackage().without(u"/metadata/appScreenshot.png"));  // dangling, to begin with
    for (const auto& row : rows) {                                // each replaces the one before it
        SCOPED_TRACE(fl::i18n::to_display(row.format));
        edit([&](AppFileWriter& writer) { writer.setAppScreenshot({0, 255, 7}, row.format); });
        const PackageContents package(app_);
        EXPECT_EQ(package.parts.at(row.part), std::string("\0\xFF\7", 3));
        EXPECT_EQ(package.contentTypes.at(row.part), row.contentType);
        EXPECT_THAT(package.targets(test_support::kScreenshotType), ElementsAre(row.part));
        EXPECT_THAT(package.targets(test_support::kThumbnailType), ElementsAre(row.part));
        EXPECT_EQ(std::count_if(package.parts.begin(), package.parts.end(),
                                [](const auto& part) {
                                    return part.first.starts_with(u"/metadata/appScreenshot");
                                }),
                  1);
    }
    edit([&](AppFileWriter& writer) { writer.setAppScreenshot({}, u"png"); });
    const auto [format, image] = KVPKGMetadataReader(app_).readScreenshotAsBytes();
    EXPECT_EQ(format, u"png");
    EXPECT_THAT(image, IsEmpty());
}

TEST_F(AppFileWriterTest, AScreenshotElsewhereIsReplacedAndNothingHereDeleted) {
    for (const char16_t* target : {u"/lumenforge/appModel.kvd\" TargetMode=\"External",
                                   u"https://example.com/a.png\" TargetMode=\"External"}) {
        good(goodPackage()
                 .withoutRelationships(test_support::kScreenshotType)
                 .withRelationship(test_support::kScreenshotType, target));
        edit([](AppFileWriter& writer) { writer.setAppScreenshot({1}, u"gif"); });
        const PackageContents after(app_);
        EXPECT_TRUE(after.parts.contains(kModelPart));
        EXPECT_THAT(after.targets(test_support::kScreenshotType),
                    ElementsAre(u"/metadata/appScreenshot.gif"));
    }
}

TEST_F(AppFileWriterTest, RefusesAFormatBeyondAsciiAndChangesNothing) {
    good();
    const std::string before = bytes();
    edit([&](AppFileWriter& writer) {
        EXPECT_THROW(writer.setAppScreenshot({1}, u"pn\u00e9"), foundation::InvalidCharacterError);
    });
    EXPECT_TRUE(bytes() == before);
}

// A caller that catches the error of a setter may still close the writer.
TEST_F(AppFileWriterTest, NeverSavesHalfOfAChange) {
    AppMetadata tooLong;
    tooLong.setRequiredProducts(std::vector<ustring>(200'001, u"p"));
    const ustring notAFile = directory_.name("");
    const auto stray = goodPackage()
                           .withoutRelationships(test_support::kScreenshotType)
                           .with(u"/media/shot.png", "PNG")
                           .withRelationship(test_support::kScreenshotType, u"/media/shot.png");
    const struct {
        const char* why;
        std::string before;  // empty for a new app
        std::function<void(AppFileWriter&)> change;
        bool saves;  // as nothing had changed yet
    } rows[] = {
        {"metadata that cannot be read again", "",
         [&](AppFileWriter& writer) { writer.setAppMetadata(tooLong); }, false},
        {"a model that cannot be read", "",
         [&](AppFileWriter& writer) { writer.setAppModelFromFile(notAFile); }, false},
        {"a model that cannot be read, over another", goodPackage().bytes(),
         [&](AppFileWriter& writer) { writer.setAppModelFromFile(notAFile); }, true},
        {"a screenshot whose name is taken", stray.bytes(),
         [](AppFileWriter& writer) { writer.setAppScreenshot({1}, u"png"); }, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        std::filesystem::remove(directory_.path() / "app.kvpkg");
        if (!row.before.empty()) directory_.write("app.kvpkg", row.before);
        AppFileWriter writer(app_, false);
        EXPECT_ANY_THROW(row.change(writer));
        if (row.saves) {
            writer.close();
            EXPECT_EQ(bytes(), row.before);
        } else {
            EXPECT_ANY_THROW(writer.setAppModelFromFile(model_));
            EXPECT_THAT([&] { writer.close(); },
                        testing::ThrowsMessage<opc::Exception>(HasSubstr(
                            "app.kvpkg: not saved, since an earlier change failed halfway")));
            EXPECT_FALSE(std::filesystem::exists(directory_.path() / "app.kvpkg"));
        }
    }
}

TEST_F(AppFileWriterTest, NothingThatIsChangedMayLeadToTheModel) {
    const std::function<void(AppFileWriter&)> changes[] = {
        [](AppFileWriter& writer) { writer.setAppScreenshot({1}, u"png"); },
        [](AppFileWriter& writer) { writer.setKORVALCodeText(u"x = 1;"); },
        [](AppFileWriter& writer) { writer.setAppMetadata(filledWith(u"text")); },
    };
    for (const auto* type :
         {test_support::kScreenshotType, test_support::kCodeType, test_support::kMetadataType}) {
        const auto wrong = goodPackage()
                               .withoutRelationships(type)
                               .withoutRelationships(test_support::kModelType)
                               .withRelationship(type, kModelPart);
        for (const auto& change : changes) {
            const ustring file = good(wrong);
            EXPECT_THAT([&] { edit(change); },
                        testing::ThrowsMessage<opc::Exception>(
                            HasSubstr("leads to the app's model, /lumenforge/appModel.kvd")));
            EXPECT_EQ(bytes(), wrong.bytes());
        }
    }
    const ustring file = good(goodPackage().withRelationship(u"urn:preview", kModelPart));
    for (const auto& change : changes)
        edit(change);
    EXPECT_EQ(PackageContents(file).parts.at(kModelPart), std::string("model \0 bytes", 13));
}

TEST_F(AppFileWriterTest, KeepsScreenshotsThatItCannotTellApart) {
    good(goodPackage()
             .with(u"/metadata/other.png", "other")
             .withRelationship(test_support::kScreenshotType, u"/metadata/other.png"));
    edit([&](AppFileWriter& writer) {
        writer.setAppScreenshot({1}, u"gif");
        EXPECT_THROW(writer.setAppScreenshot({1}, u"png"), opc::Exception) << "a taken name";
    });
    EXPECT_THAT(PackageContents(app_).targets(test_support::kScreenshotType),
                ElementsAre(u"/metadata/appScreenshot.png", u"/metadata/other.png",
                            u"/metadata/appScreenshot.gif"));
    EXPECT_EQ(KVPKGMetadataReader(app_).readScreenshotAsBytes().first, u"");
}

}  // namespace
}  // namespace appserialization
