#pragma once

#include <opc/XercesHelper.hpp>

namespace appserialization {

// Adds to `root`, which has the elements of a record and nothing else, what `earlier`, the root of the
// content that it replaces, holds besides: what later hosts have put there.
//
// - Attributes of the root, of the lists, of the items whose value is set again (the first with that
//   value has those of the first, the second those of the second) and of the texts that are the same.
// - Children of the root, behind those of the record, but for those that readers take for the record's
//   and further ones of the same name and namespace.
//
// Throws opc::Exception where that takes more than a document may hold.
void keepOtherMetadata(const xercesc::DOMElement* earlier, xercesc::DOMElement* root);

}  // namespace appserialization
