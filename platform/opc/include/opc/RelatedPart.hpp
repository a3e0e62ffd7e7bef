#pragma once

#include <opc/Package.hpp>

namespace opc::model {

// The part of a relationship type that a package is to have once, for replacing its content: what the
// first relationship leads to, unless that is the package's properties and this is not their type
// (then it throws). When none leads anywhere the part is created, as `name` or with a number added
// where that is taken, and the relationships that dangle make room for one to it.
Part requireRelatedPart(Package& package, const ustring& relationshipType, const ustring& name,
                        const ContentType& type);

}  // namespace opc::model
