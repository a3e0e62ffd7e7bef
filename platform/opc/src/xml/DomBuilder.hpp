#pragma once

#include <foundation/ustring.hpp>

#include <xercesc/util/XercesDefs.hpp>

#include "platform/opc/src/xml/XmlReader.hpp"

#include <string>
#include <vector>

XERCES_CPP_NAMESPACE_BEGIN
class DOMDocument;
class DOMElement;
class DOMNode;
XERCES_CPP_NAMESPACE_END

namespace opc::xml {

// Fills an empty DOM document with the elements, attributes and text of the document that is read,
// with their prefixes, and with declarations of namespaces as attributes; what else XML has is left
// out. Text and CDATA that touch become one node. Lets the DOM's exceptions out.
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
    std::vector<xercesc::DOMElement*> open_;  // innermost last
    std::string text_;                        // since the last tag
};

}  // namespace opc::xml
