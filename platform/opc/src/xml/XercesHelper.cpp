#include <opc/XercesHelper.hpp>

#include <opc/Exception.hpp>

#include <foundation/Shown.hpp>

#include <xercesc/dom/DOMAttr.hpp>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/dom/DOMImplementation.hpp>
#include <xercesc/dom/DOMLSOutput.hpp>
#include <xercesc/dom/DOMLSSerializer.hpp>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/framework/MemBufFormatTarget.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>

#include "platform/opc/src/package/PartStreams.hpp"
#include "platform/opc/src/xml/DomBuilder.hpp"
#include "platform/opc/src/xml/DomCopier.hpp"
#include "platform/opc/src/xml/XercesMemory.hpp"
#include "platform/opc/src/xml/XercesSetup.hpp"
#include "platform/opc/src/xml/XmlReader.hpp"

#include <cstddef>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace opc::model {

using foundation::shown;

using xml::DomCopier;
using xml::XercesMemory;

namespace {

const char* const kAnonymous = "XML document";

std::string display(const XMLCh* text) {
    return text ? shown(text) : std::string();
}

// Runs `work` on the DOM, and turns exceptions of the XML library into opc::Exception about `name`
// or std::bad_alloc. They must not get out: they are not std::exceptions, and their texts are in
// memory that may be freed before they are read.
template <class Work>
auto translated(const std::string& name, Work work) {
    try {
        return work();
    } catch (const xercesc::OutOfMemoryException&) {
        throw std::bad_alloc();
    } catch (const xercesc::XMLException& fault) {
        throw Exception(name + ": " + display(fault.getMessage()));
    } catch (const xercesc::DOMException& fault) {
        throw Exception(name + ": " + display(fault.getMessage()));
    }
}

std::string nameOf(const OutputStream& stream) {
    const auto* const named = dynamic_cast<const NamedStream*>(&stream);
    return named ? named->name() : kAnonymous;
}

std::string nameOf(const InputStream& stream, const ustring& systemId) {
    const auto* const named = dynamic_cast<const NamedStream*>(&stream);
    if (named) return named->name();
    return systemId.empty() ? kAnonymous : shown(systemId);
}

// The node that a caller gave. Throws opc::Exception if it is null, as the result of a failed
// lookup is.
template <class Node>
Node& given(Node* node, const char* what) {
    if (node == nullptr) throw Exception(std::string("no ") + what + " was given");
    return *node;
}

// Compares the local name, or the whole name of a node that was made without a namespace: it has no
// local name.
bool hasLocalName(const xercesc::DOMNode& node, const ustring& name) {
    const XMLCh* const local = node.getLocalName();
    return xercesc::XMLString::equals(local ? local : node.getNodeName(), name.c_str());
}

bool isElement(const xercesc::DOMNode& node, const ustring& name) {
    return node.getNodeType() == xercesc::DOMNode::ELEMENT_NODE && hasLocalName(node, name);
}

// The attribute with this local name, preferably the one without a prefix; null if there is none.
// Namespace declarations do not count.
const xercesc::DOMNode* findAttribute(const xercesc::DOMElement& element, const ustring& name) {
    if (const auto* const exact = element.getAttributeNode(name.c_str())) return exact;
    const auto* const attributes = element.getAttributes();
    for (XMLSize_t i = 0; i < attributes->getLength(); ++i) {
        const auto* const attribute = attributes->item(i);
        if (hasLocalName(*attribute, name) && !DomCopier::isDeclaration(*attribute))
            return attribute;
    }
    return nullptr;
}

// Throws opc::Exception if the node or one of its attributes has a value that XML cannot hold. The
// serialiser would stop midway.
void requireWritableStrings(const xercesc::DOMNode& node) {
    const XMLCh* const value = node.getNodeValue();
    if (value)
        requireXmlText(
            value, node.getParentNode() ? node.getParentNode()->getNodeName() : node.getNodeName());
    const auto* const attributes = node.getAttributes();
    for (XMLSize_t i = 0; attributes && i < attributes->getLength(); ++i) {
        const auto* const attribute = attributes->item(i);
        requireXmlText(attribute->getNodeValue(), attribute->getNodeName());
    }
}

// Like requireWritableStrings(), with the document's name in front of the message.
void requireWritable(const xercesc::DOMNode& node, const std::string& name) {
    try {
        requireWritableStrings(node);
    } catch (const Exception& fault) {
        throw Exception(name + ": " + fault.what());
    }
}

// Checks the values of every node, without recursion, and the depth, because the serialiser does
// recurse.
void requireWritableTree(const xercesc::DOMNode& root, const std::string& name) {
    std::size_t depth = 0;
    for (const xercesc::DOMNode* node = &root; node != nullptr;) {
        if (depth > xml::kMaxDepth && node->getNodeType() == xercesc::DOMNode::ELEMENT_NODE) {
            throw Exception(name + ": elements nest deeper than " + std::to_string(xml::kMaxDepth) +
                            "; remove some");
        }
        requireWritable(*node, name);
        if (const auto* const child = node->getFirstChild()) {
            ++depth;
            node = child;
            continue;
        }
        while (node != &root && node->getNextSibling() == nullptr) {
            node = node->getParentNode();
            --depth;
        }
        node = node == &root ? nullptr : node->getNextSibling();
    }
}

}  // namespace

XercesGuard::XercesGuard() {
    xml::setUpXerces();
}

struct XercesDocument::State {
    XercesMemory memory;
    xercesc::DOMDocument* document = nullptr;  // in `memory`, and freed with it
};

XercesDocument::XercesDocument(std::unique_ptr<State> state) : state_(std::move(state)) {}
XercesDocument::~XercesDocument() = default;

xercesc::DOMDocument* XercesDocument::get() const noexcept {
    return state_->document;
}

class XercesParser {
public:
    // Frees the previous document and returns the new one, which belongs to the parser.
    xercesc::DOMDocument* parse(std::string_view text, const std::string& name) {
        memory_.emplace();
        return translated(name, [&] {
            auto& library = *xercesc::DOMImplementation::getImplementation();
            auto* const document = library.createDocument(&*memory_);
            xml::DomBuilder builder(*document);
            xml::read(text, name, builder);
            return document;
        });
    }

private:
    std::optional<XercesMemory> memory_;
};

class XercesWriter {
public:
    std::string serialize(xercesc::DOMDocument& document, const std::string& name) const {
        XercesMemory memory;
        auto& library = *xercesc::DOMImplementation::getImplementation();
        auto& serializer = *library.createLSSerializer(&memory);
        auto& output = *library.createLSOutput(&memory);
        xercesc::MemBufFormatTarget target(1023, &memory);
        output.setEncoding(u"UTF-8");
        output.setByteStream(&target);
        if (!serializer.write(&document, &output)) {
            throw Exception(name +
                            ": the XML library cannot write the document; remove names and "
                            "characters that XML does not allow");
        }
        return {reinterpret_cast<const char*>(target.getRawBuffer()), target.getLen()};
    }
};

void XercesParserDeleter::operator()(XercesParser* parser) const noexcept {
    delete parser;
}

void XercesWriterDeleter::operator()(XercesWriter* writer) const noexcept {
    delete writer;
}

XercesParserPtr XercesHelper::createParser() {
    return XercesParserPtr(std::make_unique<XercesParser>().release());
}

xercesc::DOMDocument* XercesHelper::readDocumentFromStream(const XercesParserPtr& parser,
                                                           InputStream& stream, bool validate,
                                                           const ustring& systemId,
                                                           const ustring& expectedNamespace) {
    const auto name = nameOf(stream, systemId);
    if (!parser) throw Exception(name + ": no parser was given");
    if (validate) throw Exception(name + ": there is no schema to validate against");
    const auto bytes = readAll(stream, 0, xml::kMaxBytes, name);
    try {
        return parser->parse({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, name);
    } catch (const Exception& fault) {
        if (expectedNamespace.empty()) throw;
        throw Exception(std::string(fault.what()) + " (expected a document of " +
                        shown(expectedNamespace) + ")");
    }
}

XercesWriterPtr XercesHelper::createWriter() {
    return XercesWriterPtr(std::make_unique<XercesWriter>().release());
}

XercesDocument XercesHelper::createDocument() {
    auto state = std::make_unique<XercesDocument::State>();
    translated(kAnonymous, [&] {
        auto& library = *xercesc::DOMImplementation::getImplementation();
        state->document = library.createDocument(&state->memory);
    });
    return XercesDocument(std::move(state));
}

void XercesHelper::writeDocumentToStream(const XercesWriterPtr& writer,
                                         const XercesDocument& document, OutputStream& stream) {
    const auto name = nameOf(stream);
    if (!writer) throw Exception(name + ": no writer was given");
    requireWritableTree(*document.get(), name);
    const auto text = translated(name, [&] { return writer->serialize(*document.get(), name); });
    xml::check(text, name);  // a document that is written must be readable
    stream.write(std::as_bytes(std::span(text)));
    stream.flush();
}

xercesc::DOMElement* XercesHelper::appendElementNS(xercesc::DOMNode* parent,
                                                   const ustring& nameSpace, const ustring& name) {
    given(parent, "parent for an element");
    // The DOM takes names only up to the first NUL, as it does texts.
    requireXmlText(nameSpace, u"namespace of an element");
    requireXmlText(name, u"name of an element");
    return translated("element \"" + shown(name) + "\"", [&] {
        const bool isDocument = parent->getNodeType() == xercesc::DOMNode::DOCUMENT_NODE;
        auto* const document =
            isDocument ? static_cast<xercesc::DOMDocument*>(parent) : parent->getOwnerDocument();
        auto* const element = document->createElementNS(nameSpace.c_str(), name.c_str());
        DomCopier::declareDefault(*element, *parent);
        parent->appendChild(element);
        return element;
    });
}

xercesc::DOMElement* XercesHelper::getRoot(const xercesc::DOMDocument* document) {
    return given(document, "document").getDocumentElement();
}

xercesc::DOMElement* XercesHelper::getElement(const xercesc::DOMElement* parent,
                                              const ustring& name) {
    const auto& around = given(parent, "parent element");
    xercesc::DOMElement* first = nullptr;
    for (auto* node = around.getFirstChild(); node != nullptr; node = node->getNextSibling()) {
        if (!isElement(*node, name)) continue;
        auto* const element = static_cast<xercesc::DOMElement*>(node);
        if (xercesc::XMLString::equals(node->getNamespaceURI(), around.getNamespaceURI()))
            return element;
        if (first == nullptr) first = element;
    }
    return first;
}

std::vector<xercesc::DOMElement*> XercesHelper::getElements(const xercesc::DOMElement* parent,
                                                            const ustring& name) {
    std::vector<xercesc::DOMElement*> found;
    for (auto* node = given(parent, "parent element").getFirstChild(); node != nullptr;
         node = node->getNextSibling()) {
        if (isElement(*node, name)) found.push_back(static_cast<xercesc::DOMElement*>(node));
    }
    return found;
}

bool XercesHelper::getElementText(const xercesc::DOMElement* element, ustring& text) {
    text.clear();
    for (auto* node = given(element, "element").getFirstChild(); node != nullptr;
         node = node->getNextSibling()) {
        const auto type = node->getNodeType();
        if (type == xercesc::DOMNode::TEXT_NODE || type == xercesc::DOMNode::CDATA_SECTION_NODE) {
            text += node->getNodeValue();
        }
    }
    return !text.empty();
}

void XercesHelper::setElementText(xercesc::DOMElement* element, const ustring& text) {
    // This comes first, because the DOM takes the text only up to the first NUL.
    requireXmlText(text, given(element, "element").getNodeName());
    translated(display(element->getNodeName()), [&] { element->setTextContent(text.c_str()); });
}

bool XercesHelper::getElementAttribute(const xercesc::DOMElement* element, const ustring& name,
                                       ustring& value) {
    const auto* const attribute = findAttribute(given(element, "element"), name);
    if (attribute == nullptr) return false;
    value = attribute->getNodeValue();
    return true;
}

void XercesHelper::setElementAttribute(xercesc::DOMElement* element, const ustring& name,
                                       const ustring& value) {
    given(element, "element");
    requireXmlText(name, u"name of an attribute");
    requireXmlText(value, name);
    translated(shown(name), [&] { element->setAttribute(name.c_str(), value.c_str()); });
}

void XercesHelper::copyAttributes(const xercesc::DOMElement* from, xercesc::DOMElement* to,
                                  const ustring& except) {
    const auto& source = given(from, "element to copy from");
    auto& target = given(to, "element to copy to");
    translated(display(target.getNodeName()),
               [&] { DomCopier::copyAttributes(source, target, findAttribute(source, except)); });
}

void XercesHelper::appendCopies(xercesc::DOMElement* parent,
                                const std::vector<const xercesc::DOMElement*>& elements) {
    auto& target = given(parent, "parent for elements");
    for (const auto* const element : elements)
        given(element, "element to copy");
    const auto name = display(target.getNodeName());
    translated(name, [&] {
        try {
            DomCopier::appendCopies(elements, target);
        } catch (const xml::Refusal& refusal) {
            throw Exception(name + ": " + refusal.what());
        }
    });
}

}  // namespace opc::model
