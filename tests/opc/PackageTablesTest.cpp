#include "platform/opc/ContentTypes.hpp"
#include "platform/opc/RelationshipsPart.hpp"

#include <gtest/gtest.h>

namespace opc::model {
namespace {

ustring typeOf(const ContentTypes& table, const char16_t* name) {
    const auto* const type = table.find(PartName(name));
    return type ? type->toString() : u"";
}

TEST(ContentTypes, ChangesNothingButTheNameGiven) {
    const auto table = ContentTypes::parse(
        "<Types xmlns='http://schemas.openxmlformats.org/package/2006/content-types'>"
        "<Default Extension='X' ContentType='a/b'/>"
        "<Override PartName='/Gone.x' ContentType='c/d;e=&quot;f&quot;'/></Types>",
        "f");
    EXPECT_EQ(typeOf(table, u"/gone.X"), u"c/d;e=\"f\"");
    EXPECT_EQ(typeOf(table, u"/a.y/b.x"), u"a/b");
    EXPECT_EQ(typeOf(table, u"/a.x/b"), u"");
    EXPECT_EQ(typeOf(table, u"/x"), u"");
    auto changed = table;
    changed.set(PartName(u"/one.x"), ContentType(u"a/b"));  // what it is anyway
    EXPECT_EQ(changed, table);
    changed.set(PartName(u"/two.x"), ContentType(u"e/f"));
    EXPECT_NE(changed, table);
    const auto read = ContentTypes::parse(changed.toXml(), "f");
    EXPECT_EQ(read, changed);
    EXPECT_EQ(typeOf(read, u"/two.x"), u"e/f");
    changed.removeOverride(PartName(u"/two.x"));
    EXPECT_EQ(changed, table);
}

TEST(RelationshipsPart, KeepsWhatItReads) {
    const auto part = RelationshipsPart::parse(
        "<Relationships xmlns='http://schemas.openxmlformats.org/package/2006/relationships'>"
        "<Relationship Id='rId1' Type='t' Target='a&#13;&#10;&#9;&amp;&lt;>b'/>"
        "<Relationship Id='_\xC3\xA4' Type='t' Target='http://x' "
        "TargetMode='External'/><Relationship Id='z' Type='t' Target=''/></Relationships>",
        "f");
    ASSERT_EQ(part.all().size(), 3U);
    EXPECT_EQ(part.all()[0],
              Relationship(u"rId1", u"t", URI(u"a\r\n\t&<>b"), TargetMode::Internal));
    EXPECT_EQ(part.all()[1],
              Relationship(u"_\u00E4", u"t", URI(u"http://x"), TargetMode::External));
    EXPECT_EQ(RelationshipsPart::parse(part.toXml(), "f"), part);
}

}  // namespace
}  // namespace opc::model
