#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/salvage/DamagedFile.hpp"
#include "platform/opc/src/salvage/SearchBudget.hpp"

#include <cstdint>

namespace opc::zip {

// Finds out checksum and sizes of items whose local header leaves them to a descriptor behind the
// data. `source` and `budget` must outlive it.
class StreamedItems {
public:
    StreamedItems(const SalvageSource& source, SearchBudget& budget);

    // Sets the numbers of `item`, whose data begins at its `dataOffset`. Returns false if the data
    // has no end before `limit`, or none with a descriptor that fits.
    bool measure(ZipItem& item, std::uint64_t limit);
    // Sets the checksum of `item`, whose sizes are known, to the one in its descriptor if there is a
    // descriptor with these sizes. Writers to a pipe know the sizes of what they store.
    void readChecksum(ZipItem& item) const;

private:
    bool measureStored(ZipItem& item, std::uint64_t limit);
    bool measureDecoded(ZipItem& item, std::uint64_t limit);
    bool describes(std::uint64_t descriptorAt, std::uint32_t checksum) const;

    const SalvageSource* source_;
    SearchBudget* budget_;
    // Searches of descriptors have a budget of their own, so that vain ones cost no other item its
    // chance.
    SearchBudget searches_;
    SignatureSearch descriptors_;
};

}  // namespace opc::zip
