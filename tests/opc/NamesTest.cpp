#include <opc/Names.hpp>

#include <opc/Exception.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace opc::model {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

TEST(PartName, ChecksEachRule) {
    const struct {
        const char16_t* name;
        const char* fault;  // "" for a good name
    } rows[] = {
        {u"/metadata/appMetadata.xml", ""},
        {u"/a/b-c_d~e!$&'()*+,;=:@", ""},
        {u"/a%20b/%C3%A4", ""},
        {u"/.hidden/..b", ""},
        {u"", "is empty"},
        {u"a.xml", "does not start with \"/\""},
        {u"/", "ends in \"/\""},
        {u"/a/", "ends in \"/\""},
        {u"//a", "empty segment"},
        {u"/a//b", "empty segment"},
        {u"/a./b", "ends in a dot"},
        {u"/a/..", "ends in a dot"},
        {u"/a b", "\" \", which must be percent-encoded"},
        {u"/\u00E4", "\"\u00E4\", which must be percent-encoded"},
        {u"/[x]", "\"[\", which"},
        {u"/a\\b", "\"\\\", which"},
        {u"/a\nb", "\"\\x0a\", which"},
        {u"/a?b", "\"?\", which"},
        {u"/a%2fb", "percent-encoded slash"},
        {u"/a%5Cb", "percent-encoded slash or backslash"},
        {u"/%41", "percent-encodes \"A\""},
        {u"/a%2", "not followed by two hexadecimal digits"},
        {u"/a%zz", "not followed by two hexadecimal digits"},
    };
    for (const auto& row : rows) {
        std::string reason;
        SCOPED_TRACE(testing::PrintToString(ustring(row.name)));
        EXPECT_EQ(PartName::isValid(row.name, &reason), std::string_view(row.fault).empty());
        EXPECT_THAT(reason, HasSubstr(row.fault));
    }
    EXPECT_THAT([] { PartName(u"/a/"); },
                ThrowsMessage<Exception>("part name \"/a/\" ends in \"/\""));
}

TEST(PartName, ComesFromATargetResolvedAgainstTheRoot) {
    const struct {
        const char16_t* target;
        const char16_t* name;
    } rows[] = {
        {u"/metadata/a.xml", u"/metadata/a.xml"},
        {u"metadata/a.xml", u"/metadata/a.xml"},
        {u"./b/../a.xml#part", u"/a.xml"},
        {u"../../etc/passwd", u"/etc/passwd"},
        {u"/%41%2d%c3%a4", u"/A-%C3%A4"},
        {u"/two words/\u00E4\U0001F600", u"/two%20words/%C3%A4%F0%9F%98%80"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(PartName(URI(row.target)).toString(), row.name);
    }
}

TEST(PartName, RefusesTargetsThatLeadElsewhere) {
    const char16_t* const targets[] = {
        u"http://host/a.xml",
        u"file:/etc/passwd",
        u"//host/a.xml",
        u"/a?query",
        u"#fragment",
        u"",
        u"/a/..",
        u"/a/",
        u"/a/b/.",
        u"a\\b",
        u"/\xD800",
    };
    for (const auto* const target : targets) {
        SCOPED_TRACE(testing::PrintToString(ustring(target)));
        EXPECT_THROW(PartName{URI(target)}, Exception);
    }
}

TEST(PartName, ComparesIgnoringAsciiCase) {
    EXPECT_EQ(PartName(u"/Metadata/A%c3.XML"), PartName(u"/metadata/a%C3.xml"));
    EXPECT_NE(PartName(u"/a"), PartName(u"/b"));
}

TEST(PartName, HasTheExtensionOfItsLastSegment) {
    const struct {
        const char16_t* name;
        const char16_t* extension;
    } rows[] = {{u"/a.b/c.JPG", u"JPG"}, {u"/a.b/c", u""}, {u"/.rels", u"rels"}, {u"/a.b.c", u"c"}};
    for (const auto& row : rows)
        EXPECT_EQ(PartName(row.name).getExtension(), row.extension);
}

TEST(ContentType, IsAMediaTypeWithoutBlanks) {
    for (const auto* good : {u"image/png", u"application/vnd.a+xml", u"a/b;c=d;e=\"f \\\" g\""}) {
        EXPECT_EQ(ContentType(good).toString(), good);
    }
    for (const auto* bad : {u"", u"image", u"image/", u"/png", u"image/png ", u"a/b; c=d", u"a/b;c",
                            u"a/b;c=\"d", u"a/b/c", u"a/\u00E4", u"a/b;c=\"\\"}) {
        SCOPED_TRACE(testing::PrintToString(ustring(bad)));
        EXPECT_THROW(ContentType{bad}, Exception);
    }
    EXPECT_EQ(ContentType(u"Image/PNG"), ContentType(u"image/png"));
}

}  // namespace
}  // namespace opc::model
