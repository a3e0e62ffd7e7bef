#include <opc/XercesHelper.hpp>

#include <opc/Exception.hpp>

#include <xercesc/dom/DOM.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string_view>

namespace opc::model {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

ByteArrayInAdaptor streamOf(std::string_view text) {
    return ByteArrayInAdaptor(std::vector<std::uint8_t>(text.begin(), text.end()));
}

class XercesHelperTest : public testing::Test {
protected:
    xercesc::DOMElement* parse(std::string_view text) {
        auto stream = streamOf(text);
        return XercesHelper::readDocumentFromStream(parser, stream, false, u"doc", u"")
            ->getDocumentElement();
    }
    std::string write(const XercesDocument& document) {
        std::vector<std::uint8_t> bytes;
        ByteArrayOutAdaptor stream(bytes);
        XercesHelper::writeDocumentToStream(XercesHelper::createWriter(), document, stream);
        return {bytes.begin(), bytes.end()};
    }

    XercesGuard guard;
    XercesParserPtr parser = XercesHelper::createParser();
};

TEST_F(XercesHelperTest, TextAndAttributesReadBackAsWritten) {
    const ustring values[] = {
        u"",
        u" ",
        u"a\r\nb\rc\nd\te",
        u"\r",
        u"\n",
        u"\t ",
        u"]]>",
        u"<&>\"'",
        u"&lt;",
        u"\U0001F600\U0010FFFD\uFFFD\u0085\u2028\u00E4\u007F",
        ustring(100'000, u'x'),
    };
    for (const auto& value : values) {
        const auto document = XercesHelper::createDocument();
        document->setXmlStandalone(true);
        auto* const root = XercesHelper::appendElementNS(document.get(), u"urn:n", u"root");
        auto* const child = XercesHelper::appendElementNS(root, u"urn:n", u"child");
        XercesHelper::setElementText(child, value);
        XercesHelper::setElementAttribute(child, u"a", value);
        const auto* const read = XercesHelper::getElement(parse(write(document)), u"child");
        ASSERT_NE(read, nullptr);
        ustring text = u"before", attribute;
        EXPECT_EQ(XercesHelper::getElementText(read, text), !value.empty());
        EXPECT_TRUE(XercesHelper::getElementAttribute(read, u"a", attribute));
        EXPECT_EQ(text, value);
        EXPECT_EQ(attribute, value);
    }
}

TEST_F(XercesHelperTest, WritesOneStandaloneUtf8Document) {
    const auto document = XercesHelper::createDocument();
    document->setXmlStandalone(true);
    auto* const root = XercesHelper::appendElementNS(document.get(), u"urn:n", u"root");
    XercesHelper::appendElementNS(root, u"urn:n", u"list");
    EXPECT_EQ(write(document),
              "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>"
              "<root xmlns=\"urn:n\"><list/></root>");
}

TEST_F(XercesHelperTest, RefusesTextThatXmlCannotHold) {
    const auto document = XercesHelper::createDocument();
    auto* const root = XercesHelper::appendElementNS(document.get(), u"urn:n", u"root");
    const struct {
        ustring text;
        const char* message;
    } rows[] = {
        {ustring(u"a\0b", 3),
         "root: the character U+0000 at index 1 cannot stand in XML; remove it"},
        {u"\x1B", "root: the character U+001B at index 0 cannot stand in XML; remove it"},
        {u"ab\xFFFE", "root: the character U+FFFE at index 2 cannot stand in XML; remove it"},
        {u"\xD83D",
         "root: the unpaired surrogate U+D83D at index 0 cannot stand in XML; remove it"},
        {u"\xDE00x",
         "root: the unpaired surrogate U+DE00 at index 0 cannot stand in XML; remove it"},
    };
    for (const auto& row : rows) {
        EXPECT_THAT([&] { XercesHelper::setElementText(root, row.text); },
                    ThrowsMessage<Exception>(row.message));
        EXPECT_THROW(XercesHelper::setElementAttribute(root, u"a", row.text), Exception);
    }
    // Put there behind the helpers' back, it is found before anything is written.
    root->setAttribute(u"a", u"\x02");
    EXPECT_THAT([&] { write(document); },
                ThrowsMessage<Exception>(StartsWith("XML document: a: the character")));
    EXPECT_THROW(XercesHelper::appendElementNS(root, u"urn:n", u"not a name"), Exception);
}

TEST_F(XercesHelperTest, LooksUpLocalNamesAmongDirectChildren) {
    const auto* const root = parse(
        "\xEF\xBB\xBF<r xmlns:p='u' xmlns:q='w'><x><item k='deep'/></x><p:item q:k='1'>a<b>no</b>"
        "<![CDATA[<c>]]></p:item><item xmlns:k='v' q:k='3' k='2'/></r>");
    const auto items = XercesHelper::getElements(root, u"item");
    ASSERT_EQ(items.size(), 2U);
    EXPECT_EQ(XercesHelper::getElement(root, u"item"), items[0]);
    EXPECT_EQ(XercesHelper::getElement(root, u"b"), nullptr);
    ustring text;
    EXPECT_TRUE(XercesHelper::getElementText(items[0], text));
    EXPECT_EQ(text, u"a<c>");
    EXPECT_TRUE(XercesHelper::getElementAttribute(items[0], u"k", text));
    EXPECT_EQ(text, u"1");
    EXPECT_TRUE(XercesHelper::getElementAttribute(items[1], u"k", text));
    EXPECT_EQ(text, u"2");
    EXPECT_FALSE(XercesHelper::getElementAttribute(items[1], u"none", text));
    EXPECT_EQ(text, u"2");
}

TEST_F(XercesHelperTest, RefusesElementsThatAreNull) {
    ustring text;
    const std::function<void()> calls[] = {
        [] { XercesHelper::appendElementNS(nullptr, u"urn:n", u"a"); },
        [] { XercesHelper::getElement(nullptr, u"a"); },
        [] { XercesHelper::getElements(nullptr, u"a"); },
        [&] { XercesHelper::getElementText(nullptr, text); },
        [&] { XercesHelper::setElementText(nullptr, text); },
        [&] { XercesHelper::getElementAttribute(nullptr, u"a", text); },
        [&] { XercesHelper::setElementAttribute(nullptr, u"a", text); },
    };
    for (const auto& call : calls)
        EXPECT_THROW(call(), Exception);
}

TEST_F(XercesHelperTest, EveryFailureIsAnOpcException) {
    const struct {
        const char* document;
        const char* message;
    } rows[] = {
        {"<a><b></a>", "doc: line 1, column 9: mismatched tag; mend the XML or get the file again"},
        {"<a>half", "doc: line 1, column 8: no element found; mend the XML or get the file again"},
        {"<!DOCTYPE a SYSTEM 'http://127.0.0.1:1/x'><a/>",
         "doc: line 1, column 42: a document type is not allowed; remove it"},
        {"", "doc: line 1, column 1: no element found; mend the XML or get the file again"},
    };
    for (const auto& row : rows) {
        EXPECT_THAT([&] { parse(row.document); }, ThrowsMessage<Exception>(row.message));
    }
    EXPECT_NE(parse("<a/>"), nullptr);  // the parser stays usable
    auto stream = streamOf("<a/>");
    EXPECT_THROW(XercesHelper::readDocumentFromStream(parser, stream, true, u"", u""), Exception);
}

}  // namespace
}  // namespace opc::model
