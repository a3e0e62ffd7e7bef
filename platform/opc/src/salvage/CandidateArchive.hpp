#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/salvage/DamagedFile.hpp"
#include "platform/opc/src/salvage/ItemReader.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace opc::zip {

// An end record and the directory that is right in front of it.
struct EndPlace {
    format::DirectoryRecord stated;  // what the end record says of the directory
    std::uint64_t start, end;        // where the directory really is
    std::uint64_t fileEnd;           // where the archive ends; its comment follows
};

// A directory that can be read as a whole. If bytes were put into the file or removed from it, some
// items are at the offset that the directory says and others are `shift` bytes after it.
struct WholeDirectory {
    std::vector<ZipItem> items;  // as readDirectory() gives them, without `directoryRecord`
    std::int64_t shift = 0;      // negative if bytes were removed
    std::uint64_t offset = 0;    // where the end record says that it begins
    // Whether there may have been further records in front of these. If an end record says how many
    // there are, there were none.
    bool mayLackRecords = false;
};

// An archive in a damaged file whose directory could be read. Finds out where its offsets count
// from, and what speaks against its being the file's own.
class CandidateArchive {
public:
    // `items` are those of the directory. `source` must outlive the archive.
    CandidateArchive(const SalvageSource& source, const EndPlace& place,
                     std::vector<ZipItem> items);

    // Whether there is a matching local header for at least one of its items.
    bool isConfirmed() const { return isConfirmed_; }
    // Whether one is as far from the directory as the end record says.
    bool isConfirmedAtShift() const { return isConfirmedAtShift_; }
    // Where its offsets count from.
    std::uint64_t start() const;
    // Where its bytes begin: behind start() if an item of another archive contains them, from which
    // the front of this one was cut off.
    std::uint64_t front() const;
    std::uint64_t end() const { return fileEnd_; }

    // Whether there are items in front of the archive that it does not list: it is then the content
    // of an item of another archive. Such an item is whole or around the archive, because the rest
    // of a header proves nothing. The file's first sectors, if they are there twice, are no such
    // items.
    bool hasForeignItems(ItemReader& reader);
    // The offset of the first record after the archive that is not a copy of one of its own, as
    // there are if the last sectors of the file are there twice. The size of the file if there is
    // none.
    std::uint64_t foreignRecordBehind();

    WholeDirectory takeDirectory() { return std::move(directory_); }

private:
    void findBase();
    std::set<std::size_t> confirmedAtShift() const;
    std::set<std::size_t> confirmedInFront() const;
    bool isAround(const LocalHeader& header) const;
    bool mayBeAround(const LocalHeader& header) const;
    bool isForeign(std::uint64_t at, Place place, ItemReader& reader);
    std::uint64_t foreignHeader(SignatureSearch& search, std::uint64_t from, std::uint64_t to);
    std::uint64_t foreignRecord(SignatureSearch& search, std::uint64_t from,
                                std::uint64_t to) const;
    bool isForeignHeader(std::uint64_t at);
    bool isForeignRecord(std::uint64_t at, std::uint64_t size) const;
    bool isStartTwice() const;
    bool isCopy(std::uint64_t at, const LocalHeader& header);
    bool isRepeated(std::uint64_t at, std::uint64_t place);
    bool isMissed(const LocalHeader& header) const;
    bool isListed(const ZipItem& item) const;
    std::optional<std::uint64_t> listedEnd(const LocalHeader& header) const;
    std::optional<std::uint64_t> endOfOwn(std::uint64_t at) const;

    const SalvageSource* source_;
    std::uint64_t fileEnd_;
    WholeDirectory directory_;
    std::int64_t base_ = 0;
    bool isConfirmed_ = false, isConfirmedAtShift_ = false;
    std::uint64_t firstConfirmed_ = fileEnd_;  // of the headers at their shifted offsets
    // Indexes of items in front of base_, by header offset.
    std::map<std::uint64_t, std::size_t> inFront_;
    std::map<std::string, std::size_t> byName_;
    Ranges copied_;                 // pieces that are in the file twice
    std::set<std::size_t> missed_;  // indexes of items without a header where they should be
};

}  // namespace opc::zip
