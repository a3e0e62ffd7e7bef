#include <opc/PartName.hpp>

#include <opc/Exception.hpp>
#include <opc/PackageNames.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace opc::model {
namespace {

TEST(PartName, ChecksEachRule) {
    const struct {
        const char16_t* name;
        const char* fault;  // "" for a good name
    } rows[] = {
        {u"/a/b-c_d~e!$&'()*+,;=:@", ""},
        {u"/a%20b/%C3%A4", ""},
        {u"/.hidden/..b", ""},
        {u"", "is empty"},
        {u"a.xml", "does not start with \"/\""},
        {u"/a/", "ends in \"/\""},
        {u"//a", "empty segment"},
        {u"/a./b", "ends in a dot"},
        {u"/\u00E4", "\"\u00E4\", which must be percent-encoded"},
        {u"/a\\b", "\"\\\", which"},
        {u"/a\nb", "\"\\u000A\", which"},
        {u"/a%5Cb", "percent-encoded slash or backslash"},
        {u"/%41", "percent-encodes \"A\""},
        {u"/a%2", "not followed by two hexadecimal digits"},
    };
    for (const auto& row : rows) {
        std::string reason;
        SCOPED_TRACE(testing::PrintToString(ustring(row.name)));
        EXPECT_EQ(PartName::isValid(row.name, &reason), std::string_view(row.fault).empty());
        EXPECT_THAT(reason, testing::HasSubstr(row.fault));
    }
}

// What leads nowhere is among the hostile files.
TEST(PartName, ComesFromATargetResolvedAgainstTheRoot) {
    const std::pair<const char16_t*, const char16_t*> rows[] = {
        {u"metadata/a.xml", u"/metadata/a.xml"},
        {u"./b/../a.xml#part", u"/a.xml"},
        {u"../../etc/passwd", u"/etc/passwd"},
        {u"/%41%2d%c3%a4", u"/A-%C3%A4"},
        {u"/two words/\u00E4\U0001F600", u"/two%20words/%C3%A4%F0%9F%98%80"},
    };
    for (const auto& [target, name] : rows)
        EXPECT_EQ(PartName(URI(target)).toString(), name);
    EXPECT_THROW(PartName{URI(u"/\xD800")}, Exception);
}

TEST(PackageNames, LeadFromAPartToItsRelationshipsAndBack) {
    const std::pair<const char16_t*, const char16_t*> rows[] = {
        {u"/a.xml", u"/_rels/a.xml.rels"},
        {u"/b/c/a.xml", u"/b/c/_rels/a.xml.rels"},
        {u"/b/_rels/a.xml.rels", u"/b/_rels/_rels/a.xml.rels.rels"},
    };
    for (const auto& [part, table] : rows) {
        EXPECT_EQ(names::relationshipsOf(PartName(part)).toString(), table);
        EXPECT_EQ(names::sourceOf(PartName(table)), PartName(part));
    }
    EXPECT_EQ(names::sourceOf(PartName(u"/_RELS/.rels")), std::nullopt);
    for (const auto* other : {u"/_rels/a.xml", u"/b_rels/a.rels", u"/a.rels", u"/_rels/b/a.rels"})
        EXPECT_FALSE(names::isRelationshipsName(PartName(other)));
    EXPECT_TRUE(names::isRelationshipsName(PartName(u"/b/_Rels/a.RELS")));
}

TEST(ContentType, IsAMediaTypeWithoutBlanks) {
    EXPECT_EQ(ContentType(u"a/b;c=d;e=\"f \\\" g\"").toString(), u"a/b;c=d;e=\"f \\\" g\"");
    for (const auto* bad : {u"/png", u"image/png ", u"a/b; c=d", u"a/b;c", u"a/b;c=\"d", u"a/b/c",
                            u"a/\u00E4", u"a/b;c=\"\\"}) {
        SCOPED_TRACE(testing::PrintToString(ustring(bad)));
        EXPECT_THROW(ContentType{bad}, Exception);
    }
}

}  // namespace
}  // namespace opc::model
