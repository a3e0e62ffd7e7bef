#include "platform/opc/xml/DomBuilder.hpp"

#include <fl/i18n.hpp>

#include <xercesc/dom/DOMAttr.hpp>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMText.hpp>

namespace opc::xml {

namespace {

using fl::i18n::utf8_to_ustring_strict;

}  // namespace

void DomBuilder::start(const StartTag& tag) {
    endText();
    const auto nameSpace = utf8_to_ustring_strict(tag.name().nameSpace);
    const auto local = utf8_to_ustring_strict(tag.name().local);
    open_.push_back(
        document_->createElementNS(nameSpace.empty() ? nullptr : nameSpace.c_str(), local.c_str()));
    for (const auto& attribute : tag.attributes())
        setAttribute(*open_.back(), attribute);
}

void DomBuilder::setAttribute(xercesc::DOMElement& element, const Attribute& attribute) {
    const auto nameSpace = utf8_to_ustring_strict(attribute.name.nameSpace);
    // With some prefix, so that a lookup by the plain name finds the attribute that has none.
    const auto qualified =
        (nameSpace.empty() ? u"" : u"n:") + utf8_to_ustring_strict(attribute.name.local);
    // As a node of its own, since setAttributeNS() compares the namespace with all that are there.
    auto* const node = document_->createAttributeNS(nameSpace.empty() ? nullptr : nameSpace.c_str(),
                                                    qualified.c_str());
    node->setValue(utf8_to_ustring_strict(attribute.value).c_str());
    element.setAttributeNodeNS(node);
}

// An element is attached when it is complete: the DOM looks at all ancestors of the new parent, which
// then has none yet.
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
