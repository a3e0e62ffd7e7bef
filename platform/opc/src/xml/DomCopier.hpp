#pragma once

#include <xercesc/util/XercesDefs.hpp>

#include <vector>

XERCES_CPP_NAMESPACE_BEGIN
class DOMAttr;
class DOMDocument;
class DOMElement;
class DOMNode;
XERCES_CPP_NAMESPACE_END

namespace opc::xml {

// Copies from one DOM document into another, in linear time and without recursion; the DOM's own
// import promises neither. XercesHelper calls it and translates the DOM's exceptions, which pass
// through it.
class DomCopier {
public:
    // Whether the attribute declares a namespace.
    static bool isDeclaration(const xercesc::DOMNode& attribute);

    // Declares the default namespace in an element that is going to be appended to `parent`, which
    // need not be an element, if it has no prefix and another namespace is the default there. The
    // serialiser forgets some of these declarations: it takes one further out for the nearest.
    static void declareDefault(xercesc::DOMElement& element, const xercesc::DOMNode& parent);

    // Adds those attributes of `from` to `to` that it lacks, namespace declarations included.
    // Leaves out the declaration of the default namespace, because `to` has its own, and `except`,
    // which may be null.
    static void copyAttributes(const xercesc::DOMElement& from, xercesc::DOMElement& to,
                               const xercesc::DOMNode* except);

    // Appends copies of `elements`, all of which have the same parent, to `to`. They mean the same
    // there if the prefixes declared around them are declared around `to` as well. If the default
    // namespace is a different one, each copy declares its own; throws Refusal if these
    // declarations take more bytes than a document may have.
    static void appendCopies(const std::vector<const xercesc::DOMElement*>& elements,
                             xercesc::DOMElement& to);
};

}  // namespace opc::xml
