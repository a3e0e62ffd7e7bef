#pragma once

#include <opc/Package.hpp>
#include <opc/XercesHelper.hpp>

#include <xercesc/dom/DOMElement.hpp>

namespace appserialization {

// The metadata part of a package, parsed into a DOM, which it owns. Make and destroy it while an
// XercesGuard is alive.
class ParsedMetadata {
public:
    // Reads the part to its end. Throws opc::Exception if it is not an XML document or exceeds the
    // bounds of the package library's XML reader. The document does not refer to the part any more.
    explicit ParsedMetadata(const opc::model::Part& part);

    // The root element; never null. Its name is not checked, because readers only look for its
    // children.
    const xercesc::DOMElement* root() const noexcept { return root_; }

private:
    opc::model::XercesParserPtr parser_;  // owns the document
    const xercesc::DOMElement* root_;
};

}  // namespace appserialization
