#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/salvage/DamagedFile.hpp"
#include "platform/opc/src/salvage/Loss.hpp"
#include "platform/opc/src/salvage/SearchBudget.hpp"
#include "platform/opc/src/salvage/StreamedItems.hpp"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace opc::zip {

// Reads the content of items to its end, to find out whether it is whole. `source` and `budget` must
// outlive it.
class ItemReader {
public:
    ItemReader(const SalvageSource& source, SearchBudget& budget)
        : source_(&source), budget_(&budget), streamed_(source, budget) {}

    // Sets the numbers that `header` leaves to a descriptor behind the data, if the end of that is
    // known. It is searched up to `limit`.
    DataEnd complete(LocalHeader& header, std::uint64_t limit);

    // Whether the content agrees with the item's numbers, up to its `endOffset`. Numbers that have
    // failed once are not tried again: directory and local header mostly say the same.
    Verdict judge(const ZipItem& item);

    // The item of `header` if it ends before `limit` and is whole. Charges the budget in any case.
    std::optional<ZipItem> wholeItem(LocalHeader header, std::uint64_t limit);

private:
    // What an attempt to read depends on: offset and size of the data, size and checksum of the
    // content, and method.
    using Numbers = std::tuple<std::uint64_t, std::uint64_t, std::uint64_t, std::uint32_t, Method>;

    std::optional<std::string> readThrough(const ZipItem& item);

    const SalvageSource* source_;
    SearchBudget* budget_;
    StreamedItems streamed_;
    std::map<Numbers, std::string> faults_;  // why reading failed
    std::vector<std::byte> piece_;
};

}  // namespace opc::zip
