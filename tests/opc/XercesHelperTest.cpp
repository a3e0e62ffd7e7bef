#include <opc/XercesHelper.hpp>

#include <opc/Exception.hpp>

#include <gmock/gmock.h>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMText.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace opc::model {
namespace {

class Discarded final : public OutputStream {
public:
    void write(std::span<const std::byte>) override {}
    void flush() override {}
};

// An element in another, as often as `depth`, each behind what `addBefore` adds.
void writeNested(std::size_t depth, void (*addBefore)(xercesc::DOMElement& parent)) {
    const XercesGuard guard;
    const XercesDocument document = XercesHelper::createDocument();
    auto* element = XercesHelper::appendElementNS(document.get(), u"", u"a");
    for (std::size_t i = 1; i < depth; ++i) {
        addBefore(*element);
        element = XercesHelper::appendElementNS(element, u"", u"a");
    }
    Discarded nowhere;
    XercesHelper::writeDocumentToStream(XercesHelper::createWriter(), document, nowhere);
}

// Before it is serialised: the library's serialiser calls itself for each level.
TEST(XercesHelper, RefusesToSerialiseElementsThatNestTooDeep) {
    const struct {
        const char* where;
        void (*addBefore)(xercesc::DOMElement& parent);
    } rows[] = {
        {"in the first child", [](auto&) {}},
        {"behind text",
         [](auto& parent) {
             parent.appendChild(parent.getOwnerDocument()->createTextNode(u"text"));
         }},
        {"behind an element",
         [](auto& parent) { XercesHelper::appendElementNS(&parent, u"", u"b"); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.where);
        writeNested(64, row.addBefore);
        EXPECT_THAT([&] { writeNested(65, row.addBefore); },
                    testing::ThrowsMessage<Exception>(
                        "XML document: elements nest deeper than 64; remove some"));
    }
}

// Elements in these namespaces, each in the one before.
TEST(XercesHelper, DeclaresTheNamespaceOfEachElement) {
    const XercesGuard guard;
    const struct {
        std::vector<const char16_t*> namespaces;
        std::string_view written;
    } rows[] = {
        {{u"urn:a", u"urn:a"}, R"(<e xmlns="urn:a"><e/></e>)"},
        {{u"urn:a", u"", u"urn:a"}, R"(<e xmlns="urn:a"><e xmlns=""><e xmlns="urn:a"/></e></e>)"},
        {{u"urn:a", u"", u""}, R"(<e xmlns="urn:a"><e xmlns=""><e xmlns=""/></e></e>)"},
        {{u"", u"urn:a", u"urn:b", u"urn:a"},
         R"(<e><e xmlns="urn:a"><e xmlns="urn:b"><e xmlns="urn:a"/></e></e></e>)"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.written);
        const XercesDocument document = XercesHelper::createDocument();
        xercesc::DOMNode* node = document.get();
        for (const auto* const nameSpace : row.namespaces)
            node = XercesHelper::appendElementNS(node, nameSpace, u"e");
        std::vector<std::uint8_t> bytes;
        ByteArrayOutAdaptor out(bytes);
        XercesHelper::writeDocumentToStream(XercesHelper::createWriter(), document, out);
        EXPECT_THAT(std::string(bytes.begin(), bytes.end()),
                    testing::HasSubstr(std::string(row.written)));
    }
}

TEST(XercesHelper, RefusesWhatTheDomWouldCutOff) {
    const XercesGuard guard;
    const XercesDocument document = XercesHelper::createDocument();
    auto* const root = XercesHelper::appendElementNS(document.get(), u"urn:a", u"root");
    const ustring cut(u"cut\0off", 7);
    const struct {
        const char* complaint;
        std::function<void()> set;
    } rows[] = {
        {"name of an element: the character U+0000 at index 3",
         [&] { XercesHelper::appendElementNS(root, u"urn:a", cut); }},
        {"namespace of an element: the character U+0000 at index 3",
         [&] { XercesHelper::appendElementNS(root, cut, u"e"); }},
        {"name of an attribute: the character U+0000 at index 3",
         [&] { XercesHelper::setElementAttribute(root, cut, u"v"); }},
        {"no element to copy was given", [&] { XercesHelper::appendCopies(root, {nullptr}); }},
    };
    for (const auto& row : rows) {
        EXPECT_THAT(row.set, testing::ThrowsMessage<Exception>(testing::HasSubstr(row.complaint)));
    }
    EXPECT_EQ(root->getFirstChild(), nullptr);
    EXPECT_FALSE(root->hasAttributes());
}

}  // namespace
}  // namespace opc::model
