#include <opc/XercesHelper.hpp>

#include <opc/Exception.hpp>

#include <xercesc/dom/DOM.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace opc::model {
namespace {

using testing::StartsWith;
using testing::ThrowsMessage;

TEST(XercesHelper, RefusesTextThatXmlCannotHold) {
    const XercesGuard guard;
    const auto document = XercesHelper::createDocument();
    auto* const root = XercesHelper::appendElementNS(document.get(), u"urn:n", u"root");
    EXPECT_THAT(
        [&] { XercesHelper::setElementText(root, u"a\xDE00x"); },
        ThrowsMessage<Exception>(
            "root: the unpaired surrogate U+DE00 at index 1 cannot stand in XML; remove it"));
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

}  // namespace
}  // namespace opc::model
