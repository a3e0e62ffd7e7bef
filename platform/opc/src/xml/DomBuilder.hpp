#pragma once

#include <xercesc/util/XercesDefs.hpp>

#include "platform/opc/src/xml/XmlReader.hpp"

#include <string>
#include <string_view>
#include <vector>

XERCES_CPP_NAMESPACE_BEGIN
class DOMDocument;
class DOMElement;
class DOMNode;
XERCES_CPP_NAMESPACE_END

namespace opc::xml {

// Fills an empty DOM document with the document that is read: elements, attributes and text with
// their prefixes, and namespace declarations as attributes. Adjacent text and CDATA sections become
// one node. Used for one document. XercesHelper translates the DOM's exceptions, which pass through
// it.
class DomBuilder final : public Handler {
public:
    // The document must outlive the builder.
    explicit DomBuilder(xercesc::DOMDocument& document) : document_(&document) {}

    void start(const StartTag& tag) override;
    void end() override;
    void text(std::string_view characters) override { text_ += characters; }

private:
    void endText();

    xercesc::DOMDocument* document_;
    std::vector<xercesc::DOMElement*> open_;  // the elements that have not ended, innermost last
    std::string text_;                        // the text since the last tag
};

}  // namespace opc::xml
