#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/salvage/DamagedFile.hpp"
#include "platform/opc/src/salvage/SearchBudget.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace opc::zip {

// Where the data of an item ends whose sizes are in a descriptor only: where that is, nobody knows
// where, or not before the end of the bytes that it may be in.
enum class DataEnd { Known, Unknown, Behind };

// Finds out checksum and sizes of items whose local header leaves them to a descriptor behind the
// data. `source` and `budget` must outlive it.
class StreamedItems {
public:
    StreamedItems(const SalvageSource& source, SearchBudget& budget);

    // Sets the numbers of `item`, whose data begins at its `dataOffset`, if its end is known.
    DataEnd measure(ZipItem& item, std::uint64_t limit);
    // Sets the checksum of `item`, whose sizes are known, to the one in its descriptor if there is a
    // descriptor with these sizes. Writers to a pipe know the sizes of what they store.
    void readChecksum(ZipItem& item) const;

private:
    bool measureStored(ZipItem& item, std::uint64_t limit);
    DataEnd measureDecoded(ZipItem& item, std::uint64_t limit);
    bool endsAt(ZipItem& item, std::uint64_t end) const;
    bool describes(std::uint64_t descriptorAt, std::uint32_t checksum) const;

    const SalvageSource* source_;
    SearchBudget* budget_;
    // Searches of descriptors have a budget of their own, so that vain ones cost no other item its
    // chance.
    SearchBudget searches_;
    // For records behind which, or in front of which, stored data may end.
    struct Search {
        SignatureSearch signatures;
        std::span<const std::uint64_t> descriptorSizes;  // of descriptors in front of the record
        std::optional<std::uint64_t> at = std::nullopt;
    };
    std::array<Search, 3> signatures_;
};

}  // namespace opc::zip
