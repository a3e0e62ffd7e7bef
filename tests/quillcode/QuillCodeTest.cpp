#include <opc/CorePropertiesManager.hpp>
#include <opc/Exception.hpp>
#include <quillcode/quillcode.hpp>

#include <fl/i18n.hpp>

#include "tests/support/PackageBuilder.hpp"
#include "tests/support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillcode {
namespace {

using opc::interfaces::OpenMode;
using test_support::goodPlainPackage;
using test_support::readFile;
using testing::EndsWith;
using testing::ThrowsMessage;

constexpr const char* kCodeRelationship =
    "<Relationship Id='c' Type='http://schemas.quorvane.com/korval/2026/relationships/code' "
    "Target='/data'/>";

class QuillCodeTest : public testing::Test {
protected:
    void write(const ustring& code, bool stamp = false) {
        QuillCodeFileWriter writer(file, {u"a/b", u"Friendly"});
        writer.setKORVALCode(code);
        writer.close(stamp);
    }
    ustring read() const { return QuillCodeFileReader(file).getKORVALCode(); }
    opc::qzservices::CoreProperties properties() const {
        const opc::zippackage::ZipPhysicalPackage zip(file, true);
        opc::model::Package package(zip);
        package.open(OpenMode::Read);
        return opc::qzservices::CorePropertiesManager(package, 0).getCoreProperties();
    }

    test_support::TemporaryDirectory directory;
    const ustring file = directory.name("app.kvpkg");
};

TEST_F(QuillCodeTest, CodeReadsBackAsWritten) {
    for (const ustring& code :
         {ustring(u""), ustring(u"a\r\nb\rc\n\td\0e", 12), ustring(u"\xFEFF\U0001F600\u00E4]]>")}) {
        write(code);
        EXPECT_EQ(read(), code);
    }
}

TEST_F(QuillCodeTest, ANewFileHasCoreProperties) {
    write(u"code");
    EXPECT_EQ(properties().getContentType(), u"a/b");
    EXPECT_EQ(properties().getContentTypeFriendlyName(), u"Friendly");
    EXPECT_TRUE(properties().hasKORVALRelease());
    EXPECT_TRUE(properties().getLastModifiedTime().has_value());
}

TEST_F(QuillCodeTest, KeepsTheRestOfTheFile) {
    directory.write("app.kvpkg", goodPlainPackage().withRelationships(kCodeRelationship).bytes());
    write(u"new code");
    EXPECT_EQ(read(), u"new code");
    EXPECT_FALSE(properties().getContentType().has_value());
    write(u"newer code", true);
    EXPECT_EQ(properties().getContentType(), u"a/b");
    const opc::zippackage::ZipPhysicalPackage zip(file, true);
    opc::model::Package package(zip);
    package.open(OpenMode::Read);
    EXPECT_TRUE(package.hasPart(opc::model::PartName(u"/foreign/_rels/a.xml.rels")));
    EXPECT_FALSE(package.hasPart(opc::model::PartName(u"/korval/code.k")));
}

TEST_F(QuillCodeTest, RefusesInvalidTextBeforeTheFileIsTouched) {
    write(u"good");
    const auto before = readFile(directory.path() / "app.kvpkg");
    QuillCodeFileWriter writer(file, {u"a/b", u"Friendly"});
    EXPECT_THROW(writer.setKORVALCode(u"a\xD800"), fl::i18n::ConversionError);
    writer.close(false);
    EXPECT_EQ(readFile(directory.path() / "app.kvpkg"), before);
    EXPECT_THROW(writer.setKORVALCode(u"more"), opc::Exception);
    EXPECT_THROW(writer.close(false), opc::Exception);
}

TEST_F(QuillCodeTest, TheReaderNamesWhatIsWrong) {
    const struct {
        test_support::PackageBuilder package;
        const char* message;
    } rows[] = {
        {goodPlainPackage(),
         "app.kvpkg: /_rels/.rels: 0 relationships lead to a code part; expected one"},
        {goodPlainPackage().withRelationships(
             std::string(kCodeRelationship) +
             "<Relationship Id='d' "
             "Type='http://schemas.quorvane.com/korval/2026/relationships/code' Target='x'/>"),
         "app.kvpkg: /_rels/.rels: 2 relationships lead to a code part; expected one"},
        {goodPlainPackage().withRelationships(kCodeRelationship).without("data"),
         "app.kvpkg: /_rels/.rels: relationship \"c\" targets \"/data\", which is not in the "
         "package; add the part or remove the relationship"},
        {goodPlainPackage().withRelationships(kCodeRelationship).with("data", "ab\xC3(c"),
         "app.kvpkg: /data: the code is not valid UTF-8 at byte 2"},
    };
    for (const auto& row : rows) {
        directory.write("app.kvpkg", row.package.bytes());
        EXPECT_THAT([&] { read(); }, ThrowsMessage<opc::Exception>(EndsWith(row.message)));
    }
}

TEST_F(QuillCodeTest, TheWriterDoesNotChooseBetweenTwoCodeParts) {
    const std::string other =
        "<Relationship Id='d' Target='x' "
        "Type='http://schemas.quorvane.com/korval/2026/relationships/code'/>";
    directory.write("app.kvpkg",
                    goodPlainPackage().withRelationships(kCodeRelationship + other).bytes());
    QuillCodeFileWriter writer(file, {u"a/b", u"B"});
    writer.setKORVALCode(u"x");
    EXPECT_THAT([&] { writer.close(false); },
                ThrowsMessage<opc::Exception>(EndsWith("2 relationships lead to a code part; "
                                                       "expected one")));
}

}  // namespace
}  // namespace quillcode
