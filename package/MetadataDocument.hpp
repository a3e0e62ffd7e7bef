#pragma once

#include <opc/Package.hpp>
#include <opc/XercesHelper.hpp>

namespace appserialization {

// The metadata part of a package, parsed. Needs a live XercesGuard; throws opc::Exception for what is
// no XML document.
class MetadataDocument {
public:
    explicit MetadataDocument(const opc::model::Part& part);

    // Never null. Its name is not checked: readers look for its children only.
    const xercesc::DOMElement* root() const noexcept { return root_; }

private:
    opc::model::XercesParserPtr parser_;  // owns the document
    const xercesc::DOMElement* root_;
};

}  // namespace appserialization
