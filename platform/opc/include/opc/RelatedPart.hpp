#pragma once

#include <foundation/Export.hpp>
#include <opc/Package.hpp>

namespace opc::model {

// For a part that a change is going to replace, or create as `name` where no relationship of the type
// leads to one: throws when a relationship of the type, or the name, leads to an item without a content
// type. That may be the part itself, which the new one would replace or put aside.
PLATFORM_API void requireNoUntypedItem(const Package& package, const ustring& relationshipType,
                                       const PartName& name);

// The part of a relationship type that a package is to have once, for replacing its content: the part
// that the first such relationship targets. When none targets a part, the part is created, as `name`
// or with a number added where that is taken, and one relationship to it replaces those that dangle.
// Throws when the target is the package's properties and this is not their type, and when it is an
// item without a content type.
Part requireRelatedPart(Package& package, const ustring& relationshipType, const ustring& name,
                        const ContentType& type);

}  // namespace opc::model
