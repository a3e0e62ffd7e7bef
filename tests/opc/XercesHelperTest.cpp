#include <opc/XercesHelper.hpp>

#include <opc/Exception.hpp>

#include <gmock/gmock.h>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMText.hpp>

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

}  // namespace
}  // namespace opc::model
