#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <appserialization/KVPKGMetadataReader.hpp>
#include <fl/SystemCalls.hpp>
#include <fl/i18n.hpp>
#include <foundation/SaveWatch.hpp>
#include <foundation/ustring.hpp>
#include <opc/Exception.hpp>

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <thread>

#include "tests/package/PackageContents.hpp"
#include "tests/support/AppPackage.hpp"
#include "tests/support/SmallStack.hpp"
#include "tests/support/TemporaryDirectory.hpp"
#include "tests/support/WatchedSystem.hpp"

namespace appserialization {
namespace {

using test_support::AppPackage;
using test_support::goodPackage;
using test_support::PackageContents;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

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

// A good app whose relationship of this type leads elsewhere.
AppPackage leadingTo(const char16_t* type, const char16_t* target) {
    return goodPackage().withoutRelationships(type).withRelationship(type, target);
}

// With the same text everywhere, or with one that each field adds something of its own to.
AppMetadata filledWith(const ustring& text, bool isDistinct = false) {
    const auto of = [&](const char16_t* own) { return isDistinct ? text + own : text; };
    AppMetadata metadata;
    metadata.setName(of(u"name"));
    metadata.setSummary(of(u"summary"));
    metadata.setAuthor(of(u"author"));
    metadata.setVersion(of(u"version"));
    metadata.setDescription(of(u"description"));
    metadata.setScreenshotMode(of(u"mode"));
    metadata.setKVPKGVersion(of(u"format"));
    metadata.setMinimumSupportedKORVALRelease(of(u"minimum"));
    metadata.setUuid(of(u"uuid"));
    metadata.setAppType(of(u"type"));
    metadata.setRequiredProducts({of(u"id"), u"", of(u"id")});
    metadata.setImageRelativePaths({of(u"path")});
    metadata.setUserComponents({of(u"class")});
    return metadata;
}

TEST_F(AppFileWriterTest, EveryFieldReadsBackAsWritten) {
    const ustring texts[] = {u"", u" \r\na\rb\nc\td\r\t ", u" \n ",
                             u"<a href=\"x\">'&amp;' ]]> <![CDATA[ -->",
                             u"\U0001F30A \u00e9e\u0301 \u4e2d\U0010FFFD\uFFFD\u0085\u2028\u007F"};
    good();
    for (const ustring& text : texts) {
        AppMetadata expected = filledWith(text);
        setMetadata(expected);
        expected.setKORVALRelease(u"R2026b");
        EXPECT_TRUE(AppFileReader(app_).getAppMetadata().toMap() == expected.toMap())
            << fl::i18n::to_display(text);
    }
}

TEST_F(AppFileWriterTest, AnEmptyRecordWritesDefaultsAndOnlyTheMinimalProperties) {
    setMetadata(AppMetadata());
    const PackageContents package(app_);
    EXPECT_THAT(
        package.parts.at(kMetadataPart),
        HasSubstr("<metadata xmlns=\"http://schemas.quorvane.com/lumenForge/app/2017/appMetadata\">"
                  "<description></description><KVPKGVersion>1</KVPKGVersion>"
                  "<minimumSupportedKORVALRelease>R2016a</minimumSupportedKORVALRelease>"
                  "<screenshotMode>auto</screenshotMode><uuid></uuid>"
                  "<AppType>Standard</AppType>"
                  "<componentProducts/><imageRelativePaths/><userComponents/></metadata>"));
    EXPECT_EQ(package.contentTypes.at(kMetadataPart),
              u"application/vnd.quorvane.korval.lumenForge.appMetadata+xml");
    EXPECT_THAT(package.targets(test_support::kMetadataType), ElementsAre(kMetadataPart));
    EXPECT_EQ(package.properties.getContentType(), u"application/vnd.quorvane.korval.app");
    EXPECT_EQ(package.properties.getContentTypeFriendlyName(), u"KORVAL App");
    EXPECT_EQ(package.properties.getKORVALRelease(), u"R2026b");
    EXPECT_TRUE(package.properties.getLastModifiedTime());
    EXPECT_FALSE(package.properties.getTitle() || package.properties.getDescription() ||
                 package.properties.getVersion() || package.properties.getCreatedBy());
}

TEST_F(AppFileWriterTest, EachFieldHasItsPlace) {
    AppMetadata metadata = filledWith(u"a ", true);
    metadata.setKORVALRelease(u"r2026b");
    setMetadata(metadata);
    const PackageContents package(app_);
    EXPECT_THAT(package.parts.at(kMetadataPart),
                HasSubstr("<description>a description</description>"
                          "<KVPKGVersion>a format</KVPKGVersion>"
                          "<minimumSupportedKORVALRelease>a minimum</minimumSupportedKORVALRelease>"
                          "<screenshotMode>a mode</screenshotMode><uuid>a uuid</uuid>"
                          "<AppType>a type</AppType>"
                          "<componentProducts><product id=\"a id\"/><product id=\"\"/>"
                          "<product id=\"a id\"/></componentProducts>"
                          "<imageRelativePaths><imageRelativePath path=\"a path\"/>"
                          "</imageRelativePaths><userComponents><userComponent class=\"a class\"/>"
                          "</userComponents></metadata>"));
    EXPECT_EQ(package.properties.getTitle(), u"a name");
    EXPECT_EQ(package.properties.getDescription(), u"a summary");
    EXPECT_EQ(package.properties.getCreatedBy(), u"a author");
    EXPECT_EQ(package.properties.getVersion(), u"a version");
    EXPECT_EQ(package.properties.getKORVALRelease(), u"R2026b") << "the one that writes";
    EXPECT_EQ(package.properties.getKORVALReleaseInfo()->toString(), u"r2026b (legacy)");
}

TEST_F(AppFileWriterTest, OnlyAnotherReleaseIsLegacy) {
    const struct {
        const char16_t* release;
        const char16_t* info;
    } rows[] = {{u"R2026b", u"R2026b"}, {u"R2016a", u"R2016a (legacy)"}};
    for (const auto& row : rows) {
        AppMetadata metadata;
        metadata.setKORVALRelease(row.release);
        setMetadata(metadata);
        EXPECT_EQ(PackageContents(app_).properties.getKORVALReleaseInfo()->toString(), row.info);
    }
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
    EXPECT_TRUE(AppFileReader(app_).getAppMetadata().toMap() == expected.toMap());
}

// Readers take an empty element for an empty text, and the next edit for none.
TEST_F(AppFileWriterTest, AnEarlierElementWithoutTextGivesTheDefault) {
    good(goodPackage().withMetadata("<AppType/><uuid><![CDATA[ id ]]></uuid><description/>"));
    AppMetadata metadata;
    metadata.setScreenshotMode(u"");
    metadata.setVersion(u"");
    setMetadata(metadata);
    const AppMetadata read = AppFileReader(app_).getAppMetadata();
    EXPECT_EQ(read.getAppType().value(), u"Standard");
    EXPECT_EQ(read.getUuid().value(), u" id ");
    EXPECT_EQ(read.getScreenshotMode().value(), u"");
    EXPECT_EQ(read.getVersion().value(), u"");

    setMetadata(AppMetadata());
    const AppMetadata next = AppFileReader(app_).getAppMetadata();
    EXPECT_EQ(next.getScreenshotMode().value(), u"auto");
    EXPECT_EQ(next.getVersion().value(), u"") << "no text of the metadata part";
}

// A metadata part of a later host: the attributes of its root, and the root's content.
std::string laterMetadata(const std::string& attributes, const std::string& content) {
    return "<metadata xmlns=\"http://schemas.quorvane.com/lumenForge/app/2017/appMetadata\"" +
           attributes + ">" + content + "</metadata>";
}

TEST_F(AppFileWriterTest, KeepsWhatLaterHostsHavePutIntoTheMetadataPart) {
    const struct {
        const char* why;
        std::string before;
        const char* kept;
    } rows[] = {
        {"elements follow those of the record, in their order",
         laterMetadata("", "<z a=\"1\"><y/>t&amp;</z><uuid>u</uuid><b/>"),
         "<userComponents/><z a=\"1\"><y/>t&amp;</z><b/></metadata>"},
        {"attributes of the root, and the namespaces that they and the elements need",
         laterMetadata(" xmlns:h=\"urn:h\" h:rev=\"3\" xml:lang=\"de\"", "<h:x of=\"h:type\"/>"),
         "/appMetadata\" xmlns:h=\"urn:h\" h:rev=\"3\" xml:lang=\"de\"><description>"},
        {"prefixes in values mean what they did",
         laterMetadata(" xmlns:h=\"urn:h\"", "<h:x of=\"h:type\"/>"),
         "<userComponents/><h:x of=\"h:type\"/></metadata>"},
        {"where the default namespace was another one",
         "<m:metadata xmlns=\"urn:d\" xmlns:m=\"urn:m\"><x><y/></x><z xmlns=\"\"/></m:metadata>",
         "<userComponents/><x xmlns=\"urn:d\"><y/></x><z xmlns=\"\"/></metadata>"},
        {"the value that items and lists declare is not mistaken for theirs",
         laterMetadata("",
                       "<componentProducts xmlns:id=\"urn:id\"><product xmlns:id=\"a\" n=\"1\"/>"
                       "<product xmlns:h=\"urn:h\" id=\"a\" h:id=\"b\"/></componentProducts>"),
         "<componentProducts xmlns:id=\"urn:id\"><product xmlns:h=\"urn:h\" h:id=\"b\" "
         "id=\"a\"/><product id=\"b\"/><product id=\"a\"/></componentProducts>"},
        {"a value in an attribute with a prefix is not kept beside the new one",
         laterMetadata("",
                       "<componentProducts xmlns:h=\"urn:h\"><product h:id=\"a\" n=\"1\"/>"
                       "</componentProducts>"),
         "<componentProducts xmlns:h=\"urn:h\"><product id=\"a\" n=\"1\"/><product id=\"b\"/>"},
        {"the n-th item of a value is the n-th again",
         laterMetadata("",
                       "<componentProducts><product id=\"b\" n=\"1\"/><product id=\"a\"/>"
                       "<product id=\"c\" n=\"2\"/><product id=\"a\" n=\"3\"/>"
                       "<product id=\"a\" n=\"4\"/></componentProducts>"),
         "<componentProducts><product id=\"a\"/><product id=\"b\" n=\"1\"/>"
         "<product id=\"a\" n=\"3\"/></componentProducts>"},
        {"attributes of a text that stays, and not of one that is set",
         laterMetadata("", "<description f=\"md\">old</description><uuid f=\"hex\">u</uuid>"),
         "<description>new</description><KVPKGVersion>1</KVPKGVersion>"
         "<minimumSupportedKORVALRelease>R2016a</minimumSupportedKORVALRelease>"
         "<screenshotMode>auto</screenshotMode><uuid f=\"hex\">u</uuid>"},
        {"a second of the record's elements does not come back, but one of another namespace does",
         laterMetadata(" xmlns:h=\"urn:h\"",
                       "<uuid>1</uuid><uuid>2</uuid><h:uuid>3</h:uuid><userComponents/>"
                       "<userComponents><x/></userComponents>"),
         "<userComponents/><h:uuid>3</h:uuid></metadata>"},
        {"what readers take for the record's, whatever its namespace, is not kept beside it",
         "<m><x:uuid xmlns:x=\"urn:x\">u</x:uuid></m>",
         "<uuid xmlns:x=\"urn:x\">u</uuid><AppType>Standard</AppType><componentProducts><product "
         "id=\"a\"/>"
         "<product id=\"b\"/><product id=\"a\"/></componentProducts><imageRelativePaths/>"
         "<userComponents/></metadata>"},
    };
    AppMetadata record;
    record.setDescription(u"new");
    record.setRequiredProducts({u"a", u"b", u"a"});
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        good(goodPackage().with(kMetadataPart, row.before));
        setMetadata(record);
        const std::string once = PackageContents(app_).parts.at(kMetadataPart);
        EXPECT_THAT(once, HasSubstr(row.kept));
        setMetadata(record);
        EXPECT_EQ(PackageContents(app_).parts.at(kMetadataPart), once) << "it does not grow";
    }
}

TEST_F(AppFileWriterTest, KeepsNoMoreMetadataThanReadersTake) {
    std::string attributes, elements;
    for (int i = 0; i < 62; ++i)
        attributes += " a" + std::to_string(i) + "=\"\"";
    for (int i = 0; i < 20'000; ++i)
        elements += "<b/>";
    const struct {
        const char* complaint;
        std::string before;
    } rows[] = {
        {"appMetadata.xml: line 1, column 57: an element has more than 64 attributes",
         "<m:m xmlns:m=\"urn:m\"" + attributes + " z=\"\"/>"},
        {"appMetadata.xml: metadata: what is kept would take more than 16 MiB; remove some of it",
         "<m:m xmlns:m=\"urn:m\" xmlns=\"" + std::string(1024, 'u') + "\">" + elements + "</m:m>"},
    };
    for (const auto& row : rows) {
        const auto before = goodPackage().with(kMetadataPart, row.before);
        good(before);
        edit([&](AppFileWriter& writer) {
            EXPECT_THAT([&] { writer.setAppMetadata(AppMetadata()); },
                        ThrowsMessage<opc::Exception>(HasSubstr(row.complaint)));
        });
        EXPECT_EQ(bytes(), before.bytes());
    }
}

TEST_F(AppFileWriterTest, CreatesOrKeepsAsAsked) {
    AppFileWriter(app_, false).close();
    EXPECT_THAT(PackageContents(app_).targets(test_support::kModelType), IsEmpty());

    good();
    const std::string before = bytes();
    const auto setNone = [](AppFileWriter& writer) { writer.setAppModelFromFile(u"missing"); };
    edit(setNone);
    EXPECT_TRUE(bytes() == before) << "an edit that changes nothing";
    { AppFileWriter unsaved(app_, true); }
    EXPECT_TRUE(bytes() == before) << "a writer that is not closed";

    AppFileWriter fresh(app_, true);
    setNone(fresh);
    fresh.close();
    EXPECT_EQ(PackageContents(app_).parts.at(kModelPart), "");
}

TEST_F(AppFileWriterTest, CodeMayBeSetInTheMiddle) {
    const ustring code = u"  x = 'ä \U0001F30A';\r\ny = 1;\n\r";
    AppFileWriter writer(app_, true);
    writer.setAppMetadata(filledWith(u"kept"));
    writer.setKORVALCodeText(u"first");
    writer.setAppModelFromFile(directory_.write("first", "first"));
    writer.setAppModelFromFile(model_);
    writer.setKORVALCodeText(code);
    writer.setAppScreenshot({1, 2, 3}, u"png");
    writer.close();

    EXPECT_EQ(AppFileReader(app_).getKORVALCodeText(), code);
    EXPECT_EQ(AppFileReader(app_).getAppMetadata().getName().value(), u"kept");
    const PackageContents package(app_);
    EXPECT_EQ(package.parts.at(kModelPart), std::string("new \0 model", 11));
    EXPECT_EQ(package.contentTypes.at(kModelPart),
              u"application/vnd.quorvane.korval.lumenForge.appModel+kvd");
    EXPECT_THAT(package.targets(test_support::kModelType), ElementsAre(kModelPart));
    EXPECT_TRUE(package.parts.contains(u"/metadata/appScreenshot.png"));
}

// Whatever happens to the name, a writer means the file that it was constructed on.
TEST_F(AppFileWriterTest, SavesIntoItsOwnFileOrFails) {
    namespace stdfs = std::filesystem;
    const struct {
        const char* why;
        bool isSaved;  // otherwise it fails
        std::function<void()> happens;
    } rows[] = {
        {"the working directory changes", true, [] { stdfs::current_path("elsewhere"); }},
        {"the link leads elsewhere", false,
         [] {
             stdfs::remove("app.kvpkg");
             stdfs::create_symlink("elsewhere/app.kvpkg", "app.kvpkg");
         }},
        {"the app is renamed", false, [] { stdfs::rename("real.kvpkg", "renamed.kvpkg"); }},
        {"the app is replaced", false,
         [] {
             stdfs::copy("real.kvpkg", "copy");
             stdfs::rename("copy", "real.kvpkg");
         }},
        {"someone else has saved", false,
         [] {
             AppFileWriter writer(u"app.kvpkg", false);
             writer.setAppMetadata({});
             writer.close();
         }},
    };
    const auto apps = [](const stdfs::path& folder) {
        std::map<std::string, std::string> found;
        for (const auto& entry : stdfs::recursive_directory_iterator(folder)) {
            if (entry.is_regular_file()) found[entry.path()] = test_support::readFile(entry.path());
        }
        return found;
    };
    for (const bool withCode : {true, false}) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(row.why) + (withCode ? ", code" : ", close"));
            const test_support::WorkingDirectory work;
            stdfs::create_directory("elsewhere");
            for (const char* name : {"real.kvpkg", "elsewhere/app.kvpkg"})
                work.write(name, goodPackage().bytes());
            stdfs::create_symlink("real.kvpkg", "app.kvpkg");
            AppFileWriter writer(u"app.kvpkg", false);
            row.happens();
            const auto before = apps(work.path());
            const auto save = [&] {
                if (withCode) {
                    writer.setKORVALCodeText(u"x = 2;");
                } else {
                    writer.setAppModelFromFile(model_);
                }
                writer.close();
            };
            if (row.isSaved) {
                EXPECT_NO_THROW(save());
                const PackageContents saved(work.name("real.kvpkg"));
                EXPECT_EQ(withCode ? saved.parts.at(u"/korval/code.k") : "x = 2;", "x = 2;");
            } else {
                EXPECT_THAT(save, ThrowsMessage<opc::Exception>(HasSubstr(
                                      "someone else created, changed or removed the file")));
            }
            auto after = apps(work.path());
            if (row.isSaved) {
                for (const char* name : {"real.kvpkg", "app.kvpkg"}) {
                    const std::string changed = (work.path() / name).string();
                    EXPECT_NE(after.at(changed), before.at(changed));
                    after[changed] = before.at(changed);
                }
            }
            EXPECT_EQ(after, before) << "others stay, and there are no new ones";
        }
    }
}

TEST_F(AppFileWriterTest, ANewAppIsMadeWhereTheWriterWasConstructed) {
    const test_support::WorkingDirectory first;
    AppFileWriter writer(u"new.kvpkg", false);
    const test_support::WorkingDirectory second;
    writer.setAppModelFromFile(model_);
    writer.setKORVALCodeText(u"x = 1;");
    writer.setAppMetadata({});
    writer.close();
    EXPECT_EQ(AppFileReader(first.name("new.kvpkg")).getKORVALCodeText(), u"x = 1;");
    EXPECT_FALSE(std::filesystem::exists("new.kvpkg"));
}

std::string noise(std::size_t size) {
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(),
                  [random = std::mt19937(1)]() mutable { return static_cast<char>(random()); });
    return bytes;
}

TEST_F(AppFileWriterTest, LeavesTheOldFileWheneverAWatchCancelsIt) {
    good();
    const std::string before = bytes();
    const std::string content = noise(std::size_t{3} << 20);
    const ustring model = directory_.write("large.kvd", content);
    std::size_t reports = 0;
    for (std::size_t most = 0; most <= reports && !HasFailure(); ++most) {
        std::uint64_t written = reports = 0;
        const foundation::SaveWatch watch([&](std::uint64_t more) {
            written += more;
            return ++reports <= most;
        });
        try {
            edit([&](AppFileWriter& writer) {
                writer.setAppModelFromFile(model);
                writer.setAppMetadata(filledWith(u"new"));
            });
            EXPECT_EQ(reports, most);
            EXPECT_GE(written, content.size());
            EXPECT_LE(written, bytes().size());
            EXPECT_NE(bytes(), before);
            EXPECT_GT(most, 8u);
            break;
        } catch (const foundation::Cancelled&) {
            EXPECT_EQ(bytes(), before);
            using Iterator = std::filesystem::directory_iterator;
            EXPECT_EQ(std::distance(Iterator(directory_.path()), Iterator()), 3);
        }
    }
}

// The new file is in the middle of a change then.
TEST_F(AppFileWriterTest, RefusesToChangeAnythingInTheFunctionOfAWatch) {
    const std::string content = noise(std::size_t{3} << 20);
    const ustring large = directory_.write("large.kvd", content);
    using Call = std::function<void(AppFileWriter&)>;
    const std::vector<Call> calls = {
        [](AppFileWriter& writer) { writer.close(); },
        [](AppFileWriter& writer) { writer.setKORVALCodeText(u"within"); },
        [](AppFileWriter& writer) { writer.setAppMetadata(filledWith(u"within")); },
        [&](AppFileWriter& writer) { writer.setAppModelFromFile(large); },
        [](AppFileWriter& writer) { writer.setAppScreenshot({1}, u"png"); },
    };
    for (const Call& call : calls) {
        SCOPED_TRACE(&call - calls.data());
        good();
        const ustring before = *AppFileReader(app_).getAppMetadata().getName();
        AppFileWriter writer(app_, false);
        std::size_t reports = 0;
        const foundation::SaveWatch watch([&](std::uint64_t) {
            ++reports;
            EXPECT_THROW(call(writer), opc::Exception);
            EXPECT_EQ(*AppFileReader(app_).getAppMetadata().getName(), before);
            return true;
        });
        writer.setAppMetadata(filledWith(u"new"));
        writer.setAppModelFromFile(large);
        writer.close();
        EXPECT_GT(reports, 8u);
        const AppFileReader reader(app_);
        reader.copyAppDataToTempFile(directory_.name("copy.kvd"));
        EXPECT_EQ(test_support::readFile(directory_.path() / "copy.kvd"), content);
        EXPECT_EQ(*reader.getAppMetadata().getName(), u"new");
    }
}

// Both processes would write into one new file.
TEST_F(AppFileWriterTest, SavesInTheProcessThatMadeItOnly) {
    const std::string model = noise(3'000'000);
    directory_.write("large.kvd", model);
    good();
    AppFileWriter writer(app_, false);
    writer.setAppModelFromFile(directory_.name("large.kvd"));
    const pid_t child = ::fork();
    if (child == 0) {
        try {
            writer.setAppMetadata(filledWith(u"child"));
            writer.close();
        } catch (const opc::Exception&) {
            ::_exit(0);
        }
        ::_exit(1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    writer.close();
    const auto saved = PackageContents(app_).parts;
    EXPECT_TRUE(saved.at(kModelPart) == model);
}

TEST_F(AppFileWriterTest, SavesInTheParentOnlyIfTheFunctionOfAWatchForks) {
    const std::string model = noise(3'000'000), shot = noise(2'000'000);
    const ustring large = directory_.write("large.kvd", model);
    using Iterator = std::filesystem::directory_iterator;
    std::size_t reports = 1;
    for (std::size_t at = 0; at < reports && !HasFailure(); ++at) {
        SCOPED_TRACE(at);
        good();
        const auto files = std::distance(Iterator(directory_.path()), Iterator());
        pid_t child = -1;
        int status = 0;
        reports = 0;
        const foundation::SaveWatch watch([&](std::uint64_t) {
            if (reports++ == at && (child = ::fork()) > 0) ::waitpid(child, &status, 0);
            return true;
        });
        AppFileWriter writer(app_, false);
        try {
            writer.setAppScreenshot({shot.begin(), shot.end()}, u"png");
            writer.setAppModelFromFile(large);
            writer.close();
        } catch (const std::exception&) {
            if (child != 0) throw;
            try {
                writer.close();
            } catch (const opc::Exception&) {
                ::_exit(0);
            }
        }
        if (child == 0) ::_exit(1);
        EXPECT_EQ(status, 0);
        const auto saved = PackageContents(app_).parts;
        EXPECT_TRUE(saved.at(kModelPart) == model);
        EXPECT_TRUE(saved.at(u"/metadata/appScreenshot.png") == shot);
        EXPECT_EQ(std::distance(Iterator(directory_.path()), Iterator()), files);
    }
    EXPECT_GT(reports, 15u);
}

// As a signal handler may do: both processes return into the call, and descriptors have one
// position in both.
TEST_F(AppFileWriterTest, SavesTheWholeModelIfAForkComesWhileItIsRead) {
    const std::string model = noise(700'000) + std::string(1'500'000, 'a');
    const ustring large = directory_.write("large.kvd", model);
    std::size_t forks = 0;
    for (std::size_t number = 1; !HasFailure(); ++number) {
        SCOPED_TRACE(number);
        good();
        pid_t child = -1;
        int status = 0;
        {
            AppFileWriter writer(app_, false);
            test_support::WatchedSystem system;
            system.strike(number, {"", test_support::Fault::Kind::Interferes, 0, "read pread"},
                          [&] {
                              if ((child = ::fork()) > 0) ::waitpid(child, &status, 0);
                          });
            try {
                writer.setAppModelFromFile(large);
                writer.close();
            } catch (const opc::Exception&) {
                if (child != 0) throw;
                ::_exit(0);
            }
            if (child == 0) ::_exit(1);
            if (number > system.calls().size()) break;
        }
        if (child > 0) ++forks;
        EXPECT_EQ(status, 0);
        EXPECT_TRUE(PackageContents(app_).parts.at(kModelPart) == model);
    }
    EXPECT_GT(forks, 8u);
}

// A FIFO has no positions, and the name of a folder opens, but nothing can be read from it.
TEST_F(AppFileWriterTest, ReadsTheModelFromAFifoButNotFromAFolder) {
    const std::string model = noise(700'000);
    good();
    ASSERT_EQ(::mkfifo((directory_.path() / "fifo").c_str(), 0600), 0);
    std::thread other([&] { directory_.write("fifo", model); });
    edit([&](AppFileWriter& writer) { writer.setAppModelFromFile(directory_.name("fifo")); });
    other.join();
    EXPECT_TRUE(PackageContents(app_).parts.at(kModelPart) == model);

    AppFileWriter writer(app_, false);
    EXPECT_THAT([&] { writer.setAppModelFromFile(directory_.name("")); },
                ThrowsMessage<opc::Exception>(
                    testing::AllOf(HasSubstr("cannot read to the end of \""),
                                   HasSubstr("\": cannot read: Is a directory"))));
}

TEST_F(AppFileWriterTest, ChangesNothingIfTheCorePropertiesCannotBeRead) {
    good(goodPackage().with(u"/docProps/core.xml", "<broken"));
    AppFileWriter writer(app_, false);
    EXPECT_THROW(writer.setAppMetadata(filledWith(u"new")), opc::Exception);
    writer.setAppModelFromFile(model_);
    writer.close();
    AppFileReader(app_).copyAppDataToTempFile(directory_.name("copy.kvd"));
    EXPECT_EQ(test_support::readFile(directory_.path() / "copy.kvd"),
              std::string("new \0 model", 11));
}

// What else leads to the picture that was the screenshot keeps it.
TEST_F(AppFileWriterTest, KeepsAnOldScreenshotThatIsSomethingElseToo) {
    const auto* const shot = u"/metadata/appScreenshot.png";
    good(goodPackage().withRelationship(u"urn:logo", shot));
    const std::string picture = PackageContents(app_).parts.at(shot);
    edit([](AppFileWriter& writer) { writer.setAppScreenshot({1}, u"gif"); });
    const PackageContents saved(app_);
    EXPECT_EQ(saved.parts.at(shot), picture);
    EXPECT_THAT(saved.targets(test_support::kScreenshotType),
                ElementsAre(u"/metadata/appScreenshot.gif"));
}

TEST_F(AppFileWriterTest, AForeignElementHidesNoneOfTheRecords) {
    good(goodPackage().withMetadata(
        "<d:uuid xmlns:d='urn:later'>theirs</d:uuid><d:componentProducts xmlns:d='urn:later'/>"
        "<uuid>ours</uuid><componentProducts><product id='A'/></componentProducts>"));
    AppMetadata metadata = AppFileReader(app_).getAppMetadata();
    EXPECT_EQ(metadata.getUuid().value(), u"ours");
    EXPECT_THAT(metadata.getRequiredProducts().value(), ElementsAre(u"A"));
    metadata.setUuid(u"changed");
    setMetadata(metadata);
    const std::string part = PackageContents(app_).parts.at(kMetadataPart);
    EXPECT_THAT(part, HasSubstr(">changed</uuid>"));
    EXPECT_THAT(part, HasSubstr("theirs</d:uuid>"));
    EXPECT_THAT(part, HasSubstr("product id=\"A\""));
}

TEST_F(AppFileWriterTest, IsClosedByASaveAlsoByOneThatFails) {
    AppFileWriter saved(app_, true);
    saved.setAppModelFromFile(model_);
    saved.close();
    EXPECT_THAT([&] { saved.close(); },
                ThrowsMessage<opc::Exception>(HasSubstr("app.kvpkg: close()")));

    std::filesystem::create_directory(directory_.path() / "gone");
    AppFileWriter failed(directory_.name("gone/app.kvpkg"), true);
    std::filesystem::remove(directory_.path() / "gone");
    EXPECT_THROW(failed.close(), opc::Exception);
    EXPECT_THROW(failed.close(), opc::Exception);
    EXPECT_THROW(failed.setAppMetadata({}), opc::Exception);
    EXPECT_THROW(failed.setAppScreenshot({}, u""), opc::Exception);
}

TEST_F(AppFileWriterTest, TheScreenshotsFormatDecidesItsNameAndType) {
    const struct {
        ustring format;
        const char16_t *part, *contentType;
    } rows[] = {
        {u"png", u"/metadata/appScreenshot.png", u"image/png"},
        {u"JPG", u"/metadata/appScreenshot.jpg", u"image/jpeg"},
        {u"gif", u"/metadata/appScreenshot.gif", u"image/gif"},
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
        EXPECT_EQ(package.parts.size(), 6U) << "the one before it is gone";
    }
    edit([](AppFileWriter& writer) {
        EXPECT_THROW(writer.setAppScreenshot({1}, u"pn\u00e9"), foundation::InvalidCharacterError);
        writer.setAppScreenshot({}, u"png");
    });
    const auto [format, image] = KVPKGMetadataReader(app_).readScreenshotAsBytes();
    EXPECT_EQ(format, u"png");
    EXPECT_THAT(image, IsEmpty());
}

// What a screenshot of another format leaves of those that were there.
TEST_F(AppFileWriterTest, WritesNoScreenshotThatNoReaderTakes) {
    AppFileWriter writer(app_, false);
    EXPECT_THAT(
        [&] { writer.setAppScreenshot(std::vector<std::uint8_t>((256 << 20) + 1), u"png"); },
        ThrowsMessage<opc::model::PartTooLarge>(
            HasSubstr("the screenshot has 268435457 bytes, but may have at most 268435456")));
}

TEST_F(AppFileWriterTest, DeletesNoScreenshotThatItCannotTellFromOtherParts) {
    const struct {
        AppPackage before;
        std::vector<ustring> targets;
    } rows[] = {
        {leadingTo(test_support::kScreenshotType,
                   u"/lumenforge/appModel.kvd\" TargetMode=\"External"),
         {u"/metadata/appScreenshot.gif"}},
        {goodPackage()
             .with(u"/metadata/other.png", "other")
             .withRelationship(test_support::kScreenshotType, u"/metadata/other.png"),
         {u"/metadata/appScreenshot.png", u"/metadata/other.png", u"/metadata/appScreenshot.gif"}},
    };
    for (const auto& row : rows) {
        good(row.before);
        edit([](AppFileWriter& writer) { writer.setAppScreenshot({1}, u"gif"); });
        const PackageContents after(app_);
        EXPECT_EQ(after.targets(test_support::kScreenshotType), row.targets);
        EXPECT_TRUE(after.parts.contains(kModelPart));
        EXPECT_TRUE(after.parts.contains(u"/metadata/appScreenshot.png"));
    }
}

// A caller that catches the error of a setter may still close the writer.
TEST_F(AppFileWriterTest, WritesTheModelWhereItsRelationshipLeads) {
    good(leadingTo(test_support::kModelType, u"odd/name.kvd")
             .without(kModelPart)
             .with(u"/odd/name.kvd", "old"));
    edit([&](AppFileWriter& writer) { writer.setAppModelFromFile(model_); });
    const PackageContents package(app_);
    EXPECT_EQ(package.parts.at(u"/odd/name.kvd"), std::string("new \0 model", 11));
    EXPECT_FALSE(package.parts.contains(kModelPart));
}

TEST_F(AppFileWriterTest, NeverSavesHalfOfAChange) {
    AppMetadata name, text, list;
    name.setName(u"unpaired \xD800");
    text.setDescription(u"no character: \uFFFE");
    list.setUserComponents({u"good", u"bad \u0007"});
    const ustring notAFile = directory_.name("");
    const auto stray = leadingTo(test_support::kScreenshotType, u"/media/shot.png")
                           .with(u"/media/shot.png", "PNG");
    const struct {
        const char* complaint;
        std::string before;
        std::function<void(AppFileWriter&)> change;
    } rows[] = {
        {"Name", goodPackage().bytes(),
         [&](AppFileWriter& writer) { writer.setAppMetadata(name); }},
        {"Description", goodPackage().bytes(),
         [&](AppFileWriter& writer) { writer.setAppMetadata(text); }},
        {"UserComponents[1]", goodPackage().bytes(),
         [&](AppFileWriter& writer) { writer.setAppMetadata(list); }},
        {"/metadata/appMetadata.xml: line 1, column 11: no element found",
         goodPackage().with(kMetadataPart, "<metadata>").bytes(),
         [](AppFileWriter& writer) { writer.setAppMetadata(filledWith(u"new")); }},
        {"cannot read to the end of", goodPackage().bytes(),
         [&](AppFileWriter& writer) { writer.setAppModelFromFile(notAFile); }},
        {"appScreenshot.png", stray.bytes(),
         [](AppFileWriter& writer) { writer.setAppScreenshot({1}, u"png"); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.complaint);
        directory_.write("app.kvpkg", row.before);
        edit([&](AppFileWriter& writer) {
            EXPECT_THAT([&] { row.change(writer); },
                        ThrowsMessage<opc::Exception>(HasSubstr(row.complaint)));
        });
        EXPECT_EQ(bytes(), row.before);
    }
}

TEST_F(AppFileWriterTest, SavesNothingAfterAChangeThatFailedHalfway) {
    AppMetadata tooLong;
    tooLong.setRequiredProducts(std::vector<ustring>(200'001, u"p"));
    AppFileWriter writer(app_, false);
    EXPECT_THAT([&] { writer.setAppMetadata(tooLong); },
                ThrowsMessage<opc::Exception>(HasSubstr("more than 200,000 elements")));
    EXPECT_ANY_THROW(writer.setAppModelFromFile(model_));
    EXPECT_THAT([&] { writer.close(); },
                ThrowsMessage<opc::Exception>(
                    HasSubstr("app.kvpkg: not saved, because an earlier change failed halfway")));
    EXPECT_FALSE(std::filesystem::exists(directory_.path() / "app.kvpkg"));
}

// It saves what was set before, and an app that is to be replaced is gone by that.
TEST_F(AppFileWriterTest, RefusesCodeBeforeItSavesAnything) {
    const ustring unpaired = u"x = '\xD800';";
    const ustring tooLong((std::size_t{256} << 20) / 3 + 1, u'\u4e2d');  // three bytes each
    const ustring fine = u"x = 2;";
    const std::string app = goodPackage().bytes();
    const std::string withTwo = goodPackage()
                                    .with(u"/other.k", "y")
                                    .withRelationship(test_support::kCodeType, u"/other.k")
                                    .bytes();
    const struct {
        const char* complaint;
        const std::string& before;
        const ustring& code;
        bool createNew;
    } rows[] = {
        {"ill-formed at index 5", app, unpaired, true},
        {"ill-formed at index 5", app, unpaired, false},
        {"no more than 256 MiB", app, tooLong, true},
        {"2 relationships lead to a code part", withTwo, fine, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.complaint);
        directory_.write("app.kvpkg", row.before);
        AppFileWriter writer(app_, row.createNew);
        writer.setAppModelFromFile(model_);
        EXPECT_THAT([&] { writer.setKORVALCodeText(row.code); },
                    ThrowsMessage<std::exception>(HasSubstr(row.complaint)));
        EXPECT_TRUE(bytes() == row.before);
        writer.close();
        EXPECT_EQ(PackageContents(app_).parts.at(kModelPart), std::string("new \0 model", 11))
            << "the writer goes on";
    }
}

// Another save, or a lack of descriptors, comes when the code is in its place.
TEST_F(AppFileWriterTest, HasSetTheCodeOnceItIsInTheFile) {
    using fl::filesystem::SystemCalls;
    using fl::filesystem::systemCalls;
    static SystemCalls system;
    static std::function<void()> happens;
    const auto app = directory_.path() / "app.kvpkg";
    const struct {
        const char* complaint;
        std::function<void()> happens;
    } rows[] = {
        {"someone else created, changed or removed the file",
         [&] {
             edit([](AppFileWriter& writer) { writer.setAppMetadata(filledWith(u"theirs")); });
         }},
        {"someone else created, changed or removed the file",
         [&] { std::filesystem::remove(app); }},
        {"Too many open files",
         [&] {
             systemCalls().openat = [](int, const char*, int, mode_t) {
                 errno = EMFILE;
                 return -1;
             };
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.complaint);
        good();
        std::string after;
        AppFileWriter writer(app_, false);
        system = systemCalls();
        happens = [&] {
            EXPECT_EQ(AppFileReader(app_).getKORVALCodeText(), u"y = 2;");
            row.happens();
            after = std::filesystem::exists(app) ? bytes() : "";
        };
        systemCalls().renameat2 = [](int from, const char* name, int to, const char* newName,
                                     unsigned flags) {
            const int result = system.renameat2(from, name, to, newName, flags);
            systemCalls() = system;
            happens();
            return result;
        };
        EXPECT_NO_THROW(writer.setKORVALCodeText(u"y = 2;"));
        systemCalls() = system;
        for (int attempts = 0; attempts < 2; ++attempts) {
            EXPECT_THAT([&] { writer.setAppScreenshot({1}, u"png"); },
                        ThrowsMessage<opc::Exception>(HasSubstr(row.complaint)));
        }
        EXPECT_NO_THROW(writer.close()) << "there is nothing to save";
        EXPECT_THROW(writer.close(), opc::Exception);
        EXPECT_EQ(std::filesystem::exists(app) ? bytes() : "", after);
    }
}

constexpr const char16_t* kCorePropertiesType =
    u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties";

// What each setter goes by, and where it finds its part in a good app.
struct Setter {
    const char16_t *type, *part;
    void (*change)(AppFileWriter&);
};
const Setter kSetters[] = {
    {test_support::kScreenshotType, u"/metadata/appScreenshot.png",
     [](AppFileWriter& writer) { writer.setAppScreenshot({1}, u"png"); }},
    {test_support::kCodeType, u"/korval/code.k",
     [](AppFileWriter& writer) { writer.setKORVALCodeText(u"y = 2;"); }},
    {test_support::kMetadataType, kMetadataPart,
     [](AppFileWriter& writer) { writer.setAppMetadata(filledWith(u"text")); }},
};

TEST_F(AppFileWriterTest, IsRefusedWhatWouldDestroyAPartOfAnotherKindAndNothingElse) {
    const struct {
        const char* complaint;
        const char16_t* part;
    } rows[] = {
        {"leads to the app's model, /lumenforge/appModel.kvd, which", kModelPart},
        {"leads to the core properties, /docProps/core.xml, which", u"/docProps/core.xml"},
    };
    for (const auto& row : rows) {
        for (const Setter& wrong : kSetters) {
            const auto before =
                leadingTo(wrong.type, row.part).withoutRelationships(test_support::kModelType);
            const std::string content = PackageContents(good(before)).parts.at(row.part);
            for (const Setter& setter : kSetters) {
                SCOPED_TRACE(fl::i18n::to_display(wrong.type) + ", " +
                             fl::i18n::to_display(setter.type));
                good(before);
                if (&setter == &wrong) {
                    EXPECT_THAT([&] { edit(setter.change); },
                                ThrowsMessage<opc::Exception>(HasSubstr(row.complaint)));
                    EXPECT_TRUE(bytes() == before.bytes());
                    continue;
                }
                edit(setter.change);
                const std::string after = PackageContents(app_).parts.at(row.part);
                EXPECT_EQ(after == content,
                          row.part == kModelPart || setter.type != test_support::kMetadataType)
                    << "setting metadata sets the core properties, too";
            }
        }
    }
}

TEST_F(AppFileWriterTest, NeverReplacesAnItemWithoutAContentType) {
    const struct {
        const char16_t *type, *item;
        bool isLinked;
        const char16_t* setterType;
    } rows[] = {
        {test_support::kScreenshotType, u"/media/shot.gif", true, test_support::kScreenshotType},
        {test_support::kScreenshotType, u"/METADATA/appScreenshot.gif", false,
         test_support::kScreenshotType},
        {test_support::kCodeType, u"/korval/code.q", true, test_support::kCodeType},
        {test_support::kMetadataType, u"/metadata/data.q", true, test_support::kMetadataType},
        {kCorePropertiesType, u"/docProps/core.q", true, test_support::kMetadataType},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(fl::i18n::to_display(row.item));
        const auto before = (row.isLinked ? leadingTo(row.type, row.item) : goodPackage())
                                .with(row.item, "no part");
        for (const Setter& setter : kSetters) {
            good(before);
            if (setter.type != row.setterType) {
                edit(setter.change);
            } else {
                const auto change = setter.type == test_support::kScreenshotType
                                        ? [](AppFileWriter& w) { w.setAppScreenshot({1}, u"gif"); }
                                        : setter.change;
                edit([&](AppFileWriter& writer) {
                    EXPECT_THAT([&] { change(writer); },
                                ThrowsMessage<opc::Exception>(HasSubstr("has no content type")));
                });
                EXPECT_TRUE(bytes() == before.bytes());
            }
            EXPECT_THAT(bytes(), HasSubstr("no part"));
        }
    }
}

TEST_F(AppFileWriterTest, FurtherRelationshipsToAPartAreNoReasonToRefuse) {
    const char16_t* const types[] = {u"urn:preview", test_support::kModelType,
                                     test_support::kScreenshotType, test_support::kMetadataType,
                                     test_support::kCodeType};
    for (const Setter& setter : kSetters) {
        for (const char16_t* const type : types) {
            if (type == setter.type) continue;
            SCOPED_TRACE(fl::i18n::to_display(setter.type) + ", " + fl::i18n::to_display(type));
            good(goodPackage().withRelationship(type, setter.part));
            const std::string before = PackageContents(app_).parts.at(setter.part);
            edit(setter.change);
            EXPECT_NE(PackageContents(app_).parts.at(setter.part), before);
        }
    }
    // Its content type speaks for the model, its name for nothing.
    good(leadingTo(test_support::kModelType, u"/odd.kvd")
             .with(u"/odd.kvd", "old")
             .withRelationship(test_support::kCodeType, u"/odd.kvd"));
    edit([&](AppFileWriter& writer) { writer.setAppModelFromFile(model_); });
    EXPECT_EQ(PackageContents(app_).parts.at(u"/odd.kvd"), std::string("new \0 model", 11));
    for (const char16_t* const type : types) {
        good(goodPackage()
                 .withRelationship(type, kModelPart)
                 .withRelationship(type, u"/docProps/core.xml"));
        edit([&](AppFileWriter& writer) { writer.setAppModelFromFile(model_); });
        EXPECT_EQ(PackageContents(app_).parts.at(kModelPart), std::string("new \0 model", 11));
        setMetadata(filledWith(u"new"));
        EXPECT_EQ(PackageContents(app_).properties.getTitle(), u"new");
    }
}

TEST_F(AppFileWriterTest, ANewPartIsNotWhatARelationshipOfAnotherKindHasBeenMissing) {
    constexpr const char16_t* kHostProperties =
        u"http://schemas.quorvane.com/package/2026/relationships/hostProperties";
    good(goodPackage()
             .without(u"/docProps/korval.xml")
             .without(u"/metadata/appScreenshot.png")
             .withRelationship(kHostProperties, u"/metadata/appScreenshot.jpg")
             .withRelationship(u"urn:of-others", u"/metadata/appScreenshot.jpg"));
    edit([](AppFileWriter& writer) { writer.setAppScreenshot({1, 2, 3}, u"jpg"); });
    EXPECT_THAT(PackageContents(app_).targets(kHostProperties),
                testing::Not(testing::Contains(u"/metadata/appScreenshot.jpg")));
    EXPECT_THAT(PackageContents(app_).targets(u"urn:of-others"), testing::SizeIs(1));
    edit([](AppFileWriter& writer) { writer.setAppMetadata(filledWith(u"new")); });
    EXPECT_EQ(PackageContents(app_).properties.getTitle(), u"new");
}

TEST_F(AppFileWriterTest, NeedsNoMoreThanASmallStack) {
    const ustring large = directory_.write("large", std::string(3 << 20, 'm'));
    test_support::onSmallStack([&] {
        AppFileWriter writer(app_, true);
        writer.setAppModelFromFile(large);
        writer.setAppMetadata(filledWith(u"text"));
        writer.setKORVALCodeText(u"code");
        writer.setAppScreenshot({1, 2, 3}, u"png");
        writer.close();
        AppFileReader(app_).copyAppDataToTempFile(directory_.name("copy"));
    });
    std::string deepest;
    for (int i = 0; i < 63; ++i)
        deepest = "<b xmlns=\"urn:" + std::to_string(i) + "\">" + deepest + "</b>";
    good(goodPackage().withMetadata(deepest));
    test_support::onSmallStack([&] { setMetadata(AppMetadata()); });
    EXPECT_THAT(PackageContents(app_).parts.at(kMetadataPart), HasSubstr(deepest.substr(0, 500)));
}

}  // namespace
}  // namespace appserialization
