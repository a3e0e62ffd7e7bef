#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/salvage/DamagedFile.hpp"
#include "platform/opc/src/salvage/KeptItems.hpp"
#include "platform/opc/src/salvage/Loss.hpp"
#include "platform/opc/src/salvage/Sightings.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace opc::zip {

// The items that were found in a damaged file and could not be kept. Which of them are lost is
// known in the end only: another record may say better where an item is.
class Failures {
public:
    // `source` must outlive it.
    explicit Failures(const SalvageSource& source) : source_(&source) {}

    // `at` is the offset of the record that names the item.
    void add(const ZipItem& item, std::uint64_t at, Verdict verdict);
    // Remembers the bytes [from, to) as those of an item that is lost, as far as the file has them.
    void claim(std::uint64_t from, std::uint64_t to);
    const Ranges& claimed() const { return claimed_; }

    // What is lost, each name once. An item does not count if one of its name was kept after all,
    // unless that has other content, or if its record is in the content of an item, such as a zip
    // file within. Records from `directory` on count all the same if that item is lost: a cut one
    // may seem to hold them. Items that `sightings` explains are left out.
    std::vector<LostItem> lost(const KeptItems& kept, const Sightings& sightings,
                               std::uint64_t directory) const;

private:
    struct Failure {
        std::string name, shownName;
        Content content;
        Verdict verdict;
        std::uint64_t at;
    };

    const SalvageSource* source_;
    std::vector<Failure> all_;
    Ranges claimed_;
};

}  // namespace opc::zip
