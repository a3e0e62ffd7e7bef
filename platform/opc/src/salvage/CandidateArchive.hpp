#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/salvage/DamagedFile.hpp"
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
    bool isStated = true;            // false if `stated` is a guess
};

// A directory that can be read as a whole. If bytes were put into the file or removed from it, some
// items are at the offset that the directory says and others are `shift` bytes after it.
struct WholeDirectory {
    std::vector<ZipItem> items;  // as readDirectory() gives them, without `directoryRecord`
    std::int64_t shift = 0;      // negative if bytes were removed
    std::uint64_t offset = 0;    // where the end record says that it begins
    bool isExact = false;        // it begins there, counted from the start of the file
    // Whether there may have been further records in front of these. If an end record says how many
    // there are, there were none.
    bool mayLackRecords = false;
};

// An archive in a damaged file whose directory could be read: where it is, and which items are its
// own.
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
    std::uint64_t end() const { return fileEnd_; }
    // Its first bytes that no other archive can have: where an item is as far from the directory as
    // the end record says, or the directory itself.
    std::uint64_t firstOwn() const { return firstOwn_; }

    // The item of this name that the directory lists; nullptr if there is none.
    const ZipItem* itemOf(const std::string& name) const;
    // The item that is in front of start() because bytes were put in behind it, and whose header is
    // at the offset `at`; nullptr if there is none.
    const ZipItem* itemInFront(std::uint64_t at) const;
    // The item whose header is at the offset `at` according to the directory; nullptr if there is
    // none.
    const ZipItem* itemStatedAt(std::uint64_t at) const;
    // Whether the local header of an item of the directory is as far from that as the end record
    // says.
    bool isConfirmed(const ZipItem& item) const;
    // Whether the directory lists an item of this name and content.
    bool lists(const ZipItem& item) const;
    // The end of the item of a header if the directory lists that item, and not only its name: an
    // archive around this one mostly has items of the same names.
    std::optional<std::uint64_t> listedEnd(const LocalHeader& header) const;
    std::int64_t shift() const { return directory_.shift; }

    WholeDirectory takeDirectory() { return std::move(directory_); }

private:
    void findBase();
    std::set<std::size_t> confirmedAtShift() const;
    std::set<std::size_t> confirmedInFront() const;
    bool isAround(const LocalHeader& header) const;

    const SalvageSource* source_;
    std::uint64_t fileEnd_;
    WholeDirectory directory_;
    std::int64_t base_ = 0;
    bool isConfirmed_ = false, isConfirmedAtShift_ = false;
    std::uint64_t firstOwn_ = 0;
    // Indexes of items in front of base_, by header offset.
    std::map<std::uint64_t, std::size_t> inFront_;
    std::map<std::string, std::size_t> byName_;
    std::map<std::uint64_t, std::size_t> byOffset_;  // as the directory states it
};

}  // namespace opc::zip
