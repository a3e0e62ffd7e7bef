#pragma once

#include "app/FieldValues.hpp"

namespace qzapp {

// What becomes of something of which two copies of a base were changed. If one of them was not
// changed, the other one's value is the result; if both were changed alike, either.
enum class Outcome { Ours, Theirs, Conflict };

template <class Value>
Outcome outcomeOf(const Value& base, const Value& ours, const Value& theirs) {
    if (ours == theirs || theirs == base) return Outcome::Ours;
    return ours == base ? Outcome::Theirs : Outcome::Conflict;
}

struct MergedList {
    List items;
    bool isConflict;  // both sides moved items, each differently; their order is that of ours
};

// Merges lists as sets in an order: an item is in the result if either side added it, or neither
// removed it. Added items follow the item that they followed where they were added.
MergedList mergedList(const List& base, const List& ours, const List& theirs);

}  // namespace qzapp
