#pragma once

#include "platform/opc/src/salvage/CandidateArchive.hpp"
#include "platform/opc/src/salvage/DamagedFile.hpp"
#include "platform/opc/src/salvage/ItemReader.hpp"

#include <cstdint>
#include <optional>

namespace opc::zip {

// Finds what speaks against an archive's being the file's own: records outside of it that are
// neither its own nor copies of them. `source`, `archive` and `reader` must outlive it.
class ForeignRecords {
public:
    ForeignRecords(const SalvageSource& source, const CandidateArchive& archive,
                   ItemReader& reader);

    // Whether there are items in front of the archive that it does not list: it is then the content
    // of an item of another archive. Such an item is whole or around the archive, because the rest
    // of a header proves nothing.
    bool hasItemsInFront();
    // Where the bytes of the archive begin if it is the content of an item of another archive, and
    // perhaps only the rest of one: behind the header that claims them, and behind items that it
    // does not list.
    std::uint64_t front();
    // The offset of the first record after the archive that is not a copy of one of its own, as
    // there are if the last sectors of the file are there twice. The size of the file if there is
    // none.
    std::uint64_t firstBehind();

private:
    std::uint64_t firstHeader(SignatureSearch& search, std::uint64_t from, std::uint64_t to);
    std::uint64_t firstRecord(SignatureSearch& search, std::uint64_t from, std::uint64_t to) const;
    bool isInItemOfFirstRow();
    bool mayBeOwn(std::uint64_t at, const LocalHeader& header) const;
    bool isForeignItem(std::uint64_t at, Place place);
    bool isForeignHeader(std::uint64_t at);
    bool isForeignRecord(std::uint64_t at, std::uint64_t size) const;
    bool mayBeAround(const LocalHeader& header) const;
    bool isOwn(std::uint64_t at, const LocalHeader& header);
    bool isCopy(std::uint64_t at, const LocalHeader& header);
    bool isRepeated(std::uint64_t at, std::uint64_t place);
    std::optional<std::uint64_t> endOfOwn(std::uint64_t at) const;

    const SalvageSource* source_;
    const CandidateArchive* archive_;
    ItemReader* reader_;
    Ranges copied_;  // pieces that are in the file twice
};

}  // namespace opc::zip
