#include <opc/XercesHelper.hpp>

#include <opc/Exception.hpp>

#include "platform/opc/xml/XmlReader.hpp"

#include <xercesc/dom/DOM.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string_view>

namespace opc::model {
namespace {

using testing::StartsWith;
using testing::ThrowsMessage;

class XercesHelperTest : public testing::Test {
protected:
    xercesc::DOMElement* parse(std::string_view text, bool validates = false) {
        ByteArrayInAdaptor stream(std::vector<std::uint8_t>(text.begin(), text.end()));
        return XercesHelper::readDocumentFromStream(parser, stream, validates, u"doc", u"")
            ->getDocumentElement();
    }

    XercesGuard guard;
    XercesParserPtr parser = XercesHelper::createParser();
};

TEST_F(XercesHelperTest, RefusesTextThatXmlCannotHold) {
    const auto document = XercesHelper::createDocument();
    auto* const root = XercesHelper::appendElementNS(document.get(), u"urn:n", u"root");
    EXPECT_THAT(
        [&] { XercesHelper::setElementText(root, u"a\xDE00x"); },
        ThrowsMessage<Exception>(
            "root: the unpaired surrogate U+DE00 at index 1 cannot stand in XML; remove it"));
    EXPECT_THROW(XercesHelper::setElementAttribute(root, u"a", ustring(1, u'\0')), Exception);
    EXPECT_THROW(XercesHelper::appendElementNS(root, u"urn:n", u"not a name"), Exception);
    // Put there behind the helpers' back, it is found before anything is written.
    root->setAttribute(u"a", u"\x02");
    std::vector<std::uint8_t> bytes;
    ByteArrayOutAdaptor stream(bytes);
    EXPECT_THAT(
        [&] {
            XercesHelper::writeDocumentToStream(XercesHelper::createWriter(), document, stream);
        },
        ThrowsMessage<Exception>(StartsWith("XML document: a: the character")));
}

TEST_F(XercesHelperTest, LooksUpLocalNamesAmongDirectChildren) {
    const auto* const root = parse(
        "<r xmlns:p='u' xmlns:q='w'><x><item k='deep'/></x><p:item q:k='1'/>"
        "<item xmlns:k='v' q:k='3' k='2'/></r>");
    const auto items = XercesHelper::getElements(root, u"item");
    ASSERT_EQ(items.size(), 2U);
    ustring text;
    EXPECT_TRUE(XercesHelper::getElementAttribute(items[0], u"k", text));
    EXPECT_EQ(text, u"1");
    EXPECT_TRUE(XercesHelper::getElementAttribute(items[1], u"k", text));
    EXPECT_EQ(text, u"2") << "without a prefix it comes first";
    EXPECT_FALSE(XercesHelper::getElementAttribute(items[1], u"none", text));
    EXPECT_EQ(text, u"2");
    EXPECT_FALSE(XercesHelper::getElementText(items[1], text));
    EXPECT_EQ(text, u"");
}

TEST_F(XercesHelperTest, ReadsWhatIsJustWithinTheLimitsAndNoHalves) {
    std::string deep, names = "<a>";
    for (std::size_t i = 0; i < xml::kMaxDepth; ++i)
        deep = "<a>" + deep + "</a>";
    for (std::size_t i = 1; i < xml::kMaxDistinctNames; ++i)
        names += "<n" + std::to_string(i) + "/>";
    EXPECT_NO_THROW(parse(deep));
    EXPECT_NO_THROW(parse(names + "</a>"));
    EXPECT_THROW(parse(names), Exception);
    EXPECT_NO_THROW(parse("<a/>")) << "the parser stays usable";
    EXPECT_THROW(parse("<a/>", true), Exception) << "there are no schemas";
}

}  // namespace
}  // namespace opc::model
