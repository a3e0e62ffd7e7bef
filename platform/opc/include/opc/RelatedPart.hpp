#pragma once

#include <foundation/Export.hpp>
#include <opc/Package.hpp>

namespace opc::model {

// For a part that a change is going to replace, or create as `name` where no relationship of the type
// leads to one: throws when a relationship of the type, or the name, leads to an item without a content
// type. That may be the part itself, which the new one would replace or put aside.
PLATFORM_API void requireNoUntypedItem(const Package& package, const ustring& relationshipType,
                                       const PartName& name);

// The part of a relationship type that a package is to have once, for replacing its content: what the
// first relationship leads to, unless that is the package's properties and this is not their type
// (then it throws). When none leads anywhere, nor to an item without a content type (then it throws), the part is created, as `name` or with a number added
// where that is taken, and the relationships that dangle make room for one to it.
Part requireRelatedPart(Package& package, const ustring& relationshipType, const ustring& name,
                        const ContentType& type);

}  // namespace opc::model
