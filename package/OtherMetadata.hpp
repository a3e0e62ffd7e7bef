#pragma once

#include <xercesc/dom/DOMElement.hpp>

namespace appserialization {

// Keeps what later hosts have added to a metadata part. `earlier` is the root of the part's present
// content; `root` is the root of the new content, and so far holds the elements of a record and
// nothing else. Copies from `earlier` to `root`:
//
// - The attributes of the root and of the lists; of texts that have not changed; and of list items
//   whose value occurs again. If several items have a value, the first gets the attributes of the
//   first, the second those of the second, and so on.
// - All other children of the root, after those of the record. Left out are the elements that
//   readers take for the record's, and further ones with the name and namespace of such an element.
//
// Throws opc::Exception if the result would be more than a document may hold.
void keepOtherMetadata(const xercesc::DOMElement* earlier, xercesc::DOMElement* root);

}  // namespace appserialization
