#include "platform/opc/src/xml/DomBuilder.hpp"

#include <fl/i18n.hpp>

#include <xercesc/dom/DOMAttr.hpp>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMText.hpp>

#include "platform/opc/src/xml/ElementCopier.hpp"

namespace opc::xml {

namespace {

using fl::i18n::utf8_to_ustring_strict;

// The namespace of attributes that declare namespaces.
constexpr std::string_view kDeclarations = "http://www.w3.org/2000/xmlns/";

// Adds an attribute as a node. setAttributeNS() would compare its name with those of all attributes
// that the element has.
void setAttribute(xercesc::DOMElement& element, std::string_view nameSpace, const std::string& name,
                  std::string_view value) {
    const auto uri = utf8_to_ustring_strict(nameSpace);
    auto* const node = element.getOwnerDocument()->createAttributeNS(
        uri.empty() ? nullptr : uri.c_str(), utf8_to_ustring_strict(name).c_str());
    node->setValue(utf8_to_ustring_strict(value).c_str());
    element.setAttributeNodeNS(node);
}

}  // namespace

void DomBuilder::start(const StartTag& tag) {
    endText();
    const auto nameSpace = utf8_to_ustring_strict(tag.name().nameSpace);
    const auto name = utf8_to_ustring_strict(qualifiedName(tag));
    auto* const element =
        document_->createElementNS(nameSpace.empty() ? nullptr : nameSpace.c_str(), name.c_str());
    open_.push_back(element);
    for (const auto& [prefix, uri] : tag.declarations())
        setAttribute(*element, kDeclarations, declarationName(prefix), uri);
    for (const auto& [itsName, value, prefix] : tag.attributes())
        setAttribute(*element, itsName.nameSpace, qualified(prefix, itsName.local), value);
}

// An element is attached when it is complete, because attaching makes the DOM look at all ancestors
// of the new parent, which has none yet. That keeps the time linear.
void DomBuilder::end() {
    endText();
    auto* const element = open_.back();
    open_.pop_back();
    if (open_.empty()) {
        document_->appendChild(element);
    } else {
        open_.back()->appendChild(element);
    }
}

void DomBuilder::endText() {
    if (text_.empty()) return;
    open_.back()->appendChild(document_->createTextNode(utf8_to_ustring_strict(text_).c_str()));
    text_.clear();
}

}  // namespace opc::xml
