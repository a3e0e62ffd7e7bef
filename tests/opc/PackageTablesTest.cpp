#include <opc/Exception.hpp>
#include <opc/PackageTables.hpp>

#include "platform/opc/ContentTypes.hpp"
#include "platform/opc/RelationshipsPart.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace opc::model {
namespace {

using testing::EndsWith;
using testing::ThrowsMessage;

std::string types(const std::string& entries) {
    return "<Types xmlns='http://schemas.openxmlformats.org/package/2006/content-types'>" +
           entries + "</Types>";
}

std::string relationships(const std::string& entries) {
    return "<Relationships "
           "xmlns='http://schemas.openxmlformats.org/package/2006/relationships'>" +
           entries + "</Relationships>";
}

ustring typeOf(const ContentTypes& table, const char16_t* name) {
    const auto* const type = table.find(PartName(name));
    return type ? type->toString() : u"";
}

TEST(ContentTypes, PrefersOverridesAndIgnoresCase) {
    const auto table =
        ContentTypes::parse(types("<Default Extension='XML' ContentType='a/default'/>"
                                  "<Override PartName='/A.xml' ContentType='a/override'/>"),
                            "f");
    EXPECT_EQ(typeOf(table, u"/a.XML"), u"a/override");
    EXPECT_EQ(typeOf(table, u"/b.Xml"), u"a/default");
    EXPECT_EQ(typeOf(table, u"/xml"), u"");
    EXPECT_EQ(typeOf(table, u"/x.xml/b"), u"");
}

TEST(ContentTypes, ChangesNothingButTheNameGiven) {
    const auto table = ContentTypes::parse(
        types("<Default Extension='x' ContentType='a/b'/>"
              "<Override PartName='/Gone.x' ContentType='c/d;e=&quot;f&quot;'/>"),
        "f");
    auto changed = table;
    changed.set(PartName(u"/one.x"), ContentType(u"a/b"));  // what it is anyway
    EXPECT_EQ(changed, table);
    changed.set(PartName(u"/two.x"), ContentType(u"e/f"));
    EXPECT_NE(changed, table);
    const auto read = ContentTypes::parse(changed.toXml(), "f");
    EXPECT_EQ(read, changed);
    EXPECT_EQ(typeOf(read, u"/two.x"), u"e/f");
    EXPECT_EQ(typeOf(read, u"/three.x"), u"a/b");
    changed.removeOverride(PartName(u"/two.x"));
    EXPECT_EQ(changed, table);
}

TEST(RelationshipsPart, KeepsWhatItReads) {
    const auto part = RelationshipsPart::parse(
        relationships("<Relationship Id='rId1' Type='t' Target='a&#13;&amp;b'/>"
                      "<Relationship Id='_\xC3\xA4' Type='t' Target='http://x' "
                      "TargetMode='External'/><Relationship Id='z' Type='t' Target=''/>"),
        "f");
    ASSERT_EQ(part.all().size(), 3U);
    EXPECT_EQ(part.all()[0], Relationship(u"rId1", u"t", URI(u"a\r&b"), TargetMode::Internal));
    EXPECT_EQ(part.all()[1],
              Relationship(u"_\u00E4", u"t", URI(u"http://x"), TargetMode::External));
    EXPECT_EQ(RelationshipsPart::parse(part.toXml(), "f"), part);
}

TEST(RelationshipsPart, ShowsForeignTextOnOneShortLine) {
    const auto id = "&#10;" + std::string(100'000, 'x');
    try {
        RelationshipsPart::parse(
            relationships("<Relationship Id='" + id + "' Type='t' Target='x'/>"), "f");
        ADD_FAILURE() << "not refused";
    } catch (const Exception& fault) {
        EXPECT_THAT(fault.what(),
                    testing::AllOf(testing::HasSubstr("relationship id \"\\x0axxx"),
                                   testing::HasSubstr("xxx...\" is not an XML name; ")));
        EXPECT_LT(std::string_view(fault.what()).size(), 300U);
    }
}

TEST(RelationshipsPart, GivesFreeIds) {
    auto part = RelationshipsPart::parse(
        relationships("<Relationship Id='rId2' Type='t' Target='x'/>"), "f");
    EXPECT_EQ(part.create(u"t", URI(u"/a"), u"").getID(), u"rId1");
    EXPECT_EQ(part.create(u"t", URI(u"/a"), u"").getID(), u"rId3");
    EXPECT_EQ(part.create(u"t", URI(u"/a"), u"own").getID(), u"own");
    EXPECT_THAT([&] { part.create(u"t", URI(u"/a"), u"own"); },
                ThrowsMessage<Exception>(
                    "relationship id \"own\" is taken; leave it empty to get a free one"));
    EXPECT_THROW(part.create(u"t", URI(u"/a"), u"not a name"), Exception);
    EXPECT_THROW(part.create(u"", URI(u"/a"), u""), Exception);
    EXPECT_THROW(part.create(u"t", URI(u"/\x01"), u""), Exception);
    EXPECT_TRUE(part.remove(u"own"));
    EXPECT_FALSE(part.remove(u"own"));
    EXPECT_EQ(part.all().size(), 3U);
}

TEST(PackageTables, GoOnBehindAFault) {
    const ContentTypesTable table(
        types(
            "<Default Extension='.x' ContentType='a/b'/><Other/>"
            "<Override PartName='/a' ContentType='a/b'/>"
            "<Override PartName='/A' ContentType='a/c'/><Default Extension='t' ContentType=''/>") +
        "<");
    EXPECT_EQ(table.faults().size(), 5u);
    EXPECT_EQ(table.find(PartName(u"/a"))->toString(), u"a/b");
    EXPECT_FALSE(table.find(PartName(u"/b.t")));
    EXPECT_EQ(table.overrides(), std::vector{PartName(u"/a")});

    const RelationshipsTable links(
        relationships("<Relationship Id='a' Type='t' Target='x'/><Relationship/>"
                      "<Relationship Id='a' Type='t' Target='y'/>"
                      "<Relationship Id='b' Type='t' Target='z' TargetMode='External'/>"));
    EXPECT_EQ(links.faults, (std::vector<std::string>{
                                "a relationship has no Id; add it",
                                "a second relationship with id \"a\"; give it another one"}));
    EXPECT_EQ(links.relationships.size(), 2u);
}

TEST(PackageTables, ListTheElementsOfADocument) {
    const auto elements =
        readXmlElements("<r xmlns='n'>1<a k='v' x:k='w' xmlns:x='m'>t<b/>u</a></r>", "f");
    ASSERT_EQ(elements.size(), 3u);
    EXPECT_EQ(elements[0].name + elements[0].text, "r1");
    EXPECT_EQ(elements[1].text + *elements[1].attribute("k"), "tuv");
    EXPECT_EQ(elements[1].attributes.size(), 1u);
    EXPECT_EQ(elements[2].depth, 3u);
    EXPECT_THROW(readXmlElements("<r>", "f"), Exception);
}

}  // namespace
}  // namespace opc::model
