#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <opc/Package.hpp>
#include <opc/PartName.hpp>

namespace opc::model {

// Parts that a package has once and that relationships of one type lead to: the two steps of
// replacing such a part. All functions throw opc::Exception.

// Checks, before anything is changed, whether requireRelatedPart() could destroy an item without a
// content type. If a relationship of the type leads to a part, that part is going to be replaced,
// and all is well. Otherwise throws if a relationship of the type targets an untyped item, or if
// there is one with this name: it may be the very part, with its type lost, which a new part would
// replace or put aside.
PLATFORM_API void requireNoUntypedItem(const Package& package, const ustring& relationshipType,
                                       const PartName& name);

// Returns the part whose content is to be replaced: the one that the first relationship of the type
// with a part as its target leads to. If there is none, creates the part, empty, with the given
// name or, if that is taken, with a number before the extension; one relationship to it replaces
// those of the type, which dangle. Throws if the target is one of the package's property parts and
// the type is not theirs, and in the cases of requireNoUntypedItem().
Part requireRelatedPart(Package& package, const ustring& relationshipType, const ustring& name,
                        const ContentType& type);

}  // namespace opc::model
