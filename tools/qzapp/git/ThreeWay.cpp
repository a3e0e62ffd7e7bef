#include "tools/qzapp/git/ThreeWay.hpp"

#include <appserialization/ustring.hpp>

#include <algorithm>
#include <set>
#include <utility>

namespace qzapp {
namespace {

using Set = std::set<ustring>;

Set setOf(const List& list) {
    return {list.begin(), list.end()};
}

// The items that `wanted` accepts, each once.
template <class Wanted>
List select(const List& list, Wanted wanted) {
    List selected;
    Set seen;
    for (const ustring& item : list) {
        if (wanted(item) && seen.insert(item).second) selected.push_back(item);
    }
    return selected;
}

// Where an item of `other` belongs in `items`: behind the nearest item in front of it that is
// there, and behind what else was added there.
List::iterator placeFor(const ustring& item, const List& other, List& items, const Set& base) {
    auto place = items.begin();
    for (auto before = std::ranges::find(other, item); before != other.begin();) {
        const auto found = std::ranges::find(items, *--before);
        if (found == items.end()) continue;
        place = found + 1;
        break;
    }
    while (place != items.end() && !base.contains(*place))
        ++place;
    return place;
}

}  // namespace

MergedList mergedList(const List& base, const List& ours, const List& theirs) {
    if (const Outcome outcome = outcomeOf(base, ours, theirs); outcome != Outcome::Conflict)
        return {outcome == Outcome::Ours ? ours : theirs, false};
    const Set inBase = setOf(base), inOurs = setOf(ours), inTheirs = setOf(theirs);
    const auto isCommon = [&](const ustring& item) {
        return inBase.contains(item) && inOurs.contains(item) && inTheirs.contains(item);
    };
    const Outcome order =
        outcomeOf(select(base, isCommon), select(ours, isCommon), select(theirs, isCommon));
    const List& frame = order == Outcome::Theirs ? theirs : ours;
    const List& other = order == Outcome::Theirs ? ours : theirs;
    const Set inFrame = setOf(frame), inOther = setOf(other);
    List items = select(frame, [&](const ustring& item) {
        return inOther.contains(item) || !inBase.contains(item);
    });
    const List added = select(other, [&](const ustring& item) {
        return !inFrame.contains(item) && !inBase.contains(item);
    });
    for (const ustring& item : added)
        items.insert(placeFor(item, other, items, inBase), item);
    return {std::move(items), order == Outcome::Conflict};
}

}  // namespace qzapp
