#include "platform/opc/src/xml/DomCopier.hpp"

#include <xercesc/dom/DOMAttr.hpp>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/dom/DOMText.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <cstddef>

#include "platform/opc/src/xml/XmlReader.hpp"

namespace opc::xml {

namespace {

using xercesc::DOMDocument;
using xercesc::DOMElement;
using xercesc::DOMNode;
using xercesc::XMLString;
using xercesc::XMLUni;

void copyAttribute(const DOMNode& attribute, DOMElement& to) {
    auto* const copy = to.getOwnerDocument()->createAttributeNS(attribute.getNamespaceURI(),
                                                                attribute.getNodeName());
    copy->setValue(attribute.getNodeValue());
    to.setAttributeNodeNS(copy);
}

DOMElement* copyOf(const DOMElement& element, DOMDocument& document) {
    auto* const copy = document.createElementNS(element.getNamespaceURI(), element.getNodeName());
    const auto* const attributes = element.getAttributes();
    for (XMLSize_t i = 0; i < attributes->getLength(); ++i)
        copyAttribute(*attributes->item(i), *copy);
    return copy;
}

DOMNode* copyOf(const DOMNode& node, DOMDocument& document) {
    if (node.getNodeType() == DOMNode::ELEMENT_NODE)
        return copyOf(static_cast<const DOMElement&>(node), document);
    return document.createTextNode(node.getNodeValue());
}

// Copies an element with everything in it. A copy is attached when it is complete, because
// attaching makes the DOM look at all ancestors of the new parent, which has none yet. That keeps
// the time linear.
DOMElement* copyOfTree(const DOMElement& top, DOMDocument& document) {
    std::vector<DOMNode*> open{copyOf(top, document)};
    for (const DOMNode* node = &top;;) {
        if (const DOMNode* const child = node->getFirstChild()) {
            node = child;
            open.push_back(copyOf(*node, document));
            continue;
        }
        while (node != &top) {
            DOMNode* const complete = open.back();
            open.pop_back();
            open.back()->appendChild(complete);
            if (node->getNextSibling() != nullptr) break;
            node = node->getParentNode();
        }
        if (node == &top) return static_cast<DOMElement*>(open.front());
        node = node->getNextSibling();
        open.push_back(copyOf(*node, document));
    }
}

bool declaresDefault(const DOMElement& element) {
    return element.getAttributeNode(XMLUni::fgXMLNSString) != nullptr;
}

bool hasPrefix(const DOMElement& element) {
    return element.getPrefix() != nullptr && *element.getPrefix() != 0;
}

// The namespace of an element; empty if it has none.
const XMLCh* namespaceOf(const DOMElement& element) {
    const XMLCh* const nameSpace = element.getNamespaceURI();
    return nameSpace ? nameSpace : XMLUni::fgZeroLenString;
}

void setDefault(DOMElement& element, const XMLCh* nameSpace) {
    element.setAttributeNS(XMLUni::fgXMLNSURIName, XMLUni::fgXMLNSString, nameSpace);
}

// The namespace of elements without a prefix within `top`; empty if they have none.
const XMLCh* defaultWithin(const DOMNode& top) {
    for (const DOMNode* node = &top; node->getNodeType() == DOMNode::ELEMENT_NODE;
         node = node->getParentNode()) {
        const auto& each = static_cast<const DOMElement&>(*node);
        if (declaresDefault(each)) return each.getAttribute(XMLUni::fgXMLNSString);
        // An element that was made in the DOM may be in a namespace, or in none, without prefix and
        // declaration.
        if (!hasPrefix(each)) return namespaceOf(each);
        if (node->getParentNode() == nullptr) break;
    }
    return XMLUni::fgZeroLenString;
}

}  // namespace

bool DomCopier::isDeclaration(const DOMNode& attribute) {
    return XMLString::equals(attribute.getNamespaceURI(), XMLUni::fgXMLNSURIName);
}

void DomCopier::declareDefault(DOMElement& element, const DOMNode& parent) {
    if (parent.getNodeType() != DOMNode::ELEMENT_NODE || hasPrefix(element)) return;
    const XMLCh* const own = namespaceOf(element);
    if (!XMLString::equals(own, defaultWithin(parent))) setDefault(element, own);
}

void DomCopier::copyAttributes(const DOMElement& from, DOMElement& to, const DOMNode* except) {
    const auto* const attributes = from.getAttributes();
    for (XMLSize_t i = 0; i < attributes->getLength(); ++i) {
        const DOMNode& attribute = *attributes->item(i);
        const bool isDefault = XMLString::equals(attribute.getNodeName(), XMLUni::fgXMLNSString);
        // An attribute that was made without a namespace has no local name.
        const XMLCh* const local = attribute.getLocalName();
        const bool isThere =
            to.hasAttributeNS(attribute.getNamespaceURI(), local ? local : attribute.getNodeName());
        if (&attribute != except && !isDefault && !isThere) copyAttribute(attribute, to);
    }
}

void DomCopier::appendCopies(const std::vector<const DOMElement*>& elements, DOMElement& to) {
    if (elements.empty()) return;
    const XMLCh* const inherited = defaultWithin(*elements.front()->getParentNode());
    const bool mustDeclare = !XMLString::equals(inherited, defaultWithin(to));
    std::size_t added = 0;
    for (const DOMElement* const element : elements) {
        DOMElement* const copy = copyOfTree(*element, *to.getOwnerDocument());
        if (mustDeclare && !declaresDefault(*copy)) {
            setDefault(*copy, inherited);
            requireRoomToKeep(added += XMLString::stringLen(inherited));
        }
        to.appendChild(copy);
    }
}

}  // namespace opc::xml
