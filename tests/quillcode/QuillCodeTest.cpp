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

TEST_F(QuillCodeTest, KeepsTheRestOfTheFile) {
    directory.write("app.kvpkg", goodPlainPackage().withRelationships(kCodeRelationship).bytes());
    write(u"new code");
    EXPECT_FALSE(properties().getContentType().has_value());
    const ustring code(
        u"\xFEFF"
        u"a\r\nb\rc\n\td\0\U0001F600",
        13);
    write(code, true);
    EXPECT_EQ(read(), code);
    EXPECT_EQ(properties().getContentType(), u"a/b");
    EXPECT_TRUE(properties().getLastModifiedTime().has_value());
    const std::string bytes = readFile(directory.path() / "app.kvpkg");
    EXPECT_THAT(bytes, testing::HasSubstr("foreign/_rels/a.xml.rels"));
    EXPECT_THAT(bytes, testing::Not(testing::HasSubstr("korval/code.k")));
}

TEST_F(QuillCodeTest, RefusesInvalidTextBeforeTheFileIsTouched) {
    write(u"good");
    const auto before = readFile(directory.path() / "app.kvpkg");
    QuillCodeFileWriter writer(file, {u"a/b", u"Friendly"});
    EXPECT_THROW(writer.setKORVALCode(u"a\xD800"), fl::i18n::ConversionError);
    writer.close(false);
    EXPECT_EQ(readFile(directory.path() / "app.kvpkg"), before);
    EXPECT_THROW(writer.setKORVALCode(u"more"), opc::Exception);
}

TEST_F(QuillCodeTest, WritesNoMoreThanReadersTake) {
    QuillCodeFileWriter writer(file, {u"a/b", u"Friendly"});
    EXPECT_THAT([&] { writer.setKORVALCode(ustring((256 << 20) + 1, u'x')); },
                testing::ThrowsMessage<opc::Exception>(testing::EndsWith(
                    "the code has 268435457 bytes; no more than 256 MiB can be written")));
}

TEST_F(QuillCodeTest, DoesNotChooseBetweenTwoCodeParts) {
    std::string second = kCodeRelationship;
    second.replace(second.find("Id='c'"), 6, "Id='d'");
    directory.write("app.kvpkg",
                    goodPlainPackage().withRelationships(kCodeRelationship + second).bytes());
    EXPECT_THROW(read(), opc::Exception);
    EXPECT_THROW(write(u"x"), opc::Exception);
}

}  // namespace
}  // namespace quillcode
