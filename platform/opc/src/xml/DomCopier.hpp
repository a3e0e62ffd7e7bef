#pragma once

#include <xercesc/util/XercesDefs.hpp>

#include <cstddef>
#include <vector>

XERCES_CPP_NAMESPACE_BEGIN
class DOMAttr;
class DOMDocument;
class DOMElement;
class DOMNode;
XERCES_CPP_NAMESPACE_END

namespace opc::xml {

// Copies from one DOM document into another, in linear time and without recursion, which the DOM's own
// import does not promise. Lets the DOM's exceptions out.
class DomCopier {
public:
    // Whether the attribute declares a namespace.
    static bool isDeclaration(const xercesc::DOMNode& attribute);

    // Adds the attributes that `to` lacks, namespace declarations included, except for the default
    // namespace, which is `to`'s own, and for `except`, which may be null.
    static void copyAttributes(const xercesc::DOMElement& from, xercesc::DOMElement& to,
                               const xercesc::DOMNode* except);

    // Appends copies that mean the same as long as the prefixes around them are declared there,
    // too; the default namespace need not be. Throws Refusal when its declarations, which have to
    // be added then, would take more than a document may.
    static void appendCopies(const std::vector<const xercesc::DOMElement*>& elements,
                             xercesc::DOMElement& to);
};

}  // namespace opc::xml
