#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/ByteSource.hpp"

#include <fl/filesystem.hpp>

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace opc::zip {

// What salvaging a damaged zip file builds on: its bytes, ranges of them, a search for signatures,
// and single records. Nothing here trusts a number of the file, and no function fails because of
// what the file holds. A failure to read is a std::system_error.

// The bytes of a file that was a zip file before it was damaged.
struct SalvageSource {
    std::shared_ptr<const ByteSource> bytes;
    std::uint64_t size;
    const fl::filesystem::path* file;  // for messages

    // The `count` bytes from `offset`, or as many of them as the file has. Allocates no more than
    // the size of the file, whatever `count` is.
    std::vector<std::byte> at(std::uint64_t offset, std::uint64_t count) const;
    // The 32-bit number at `offset`; nullopt if the file ends before it does.
    std::optional<std::uint32_t> number(std::uint64_t offset) const;
};

// What tells two items of one name apart.
struct Content {
    explicit Content(const ZipItem& item) : size(item.size), crc32(item.crc32) {}

    std::uint64_t size;
    std::uint32_t crc32;
    auto operator<=>(const Content&) const = default;
};

// A set of ranges [from, to) of a file, none of which overlap.
class Ranges {
public:
    // Whether a range of the set has bytes in [from, to).
    bool overlap(std::uint64_t from, std::uint64_t to) const;
    // The end of the range that contains the offset `place`; nullopt if there is none.
    std::optional<std::uint64_t> endAround(std::uint64_t place) const;
    // Adds a range and merges it with those that it overlaps. An empty range is ignored.
    void add(std::uint64_t from, std::uint64_t to);
    // All ranges as start and end, in the order of their starts.
    const std::map<std::uint64_t, std::uint64_t>& all() const { return endOf_; }
    // What is between the ranges, from 0 to `size`, also as start and end. Some may be empty.
    std::vector<std::pair<std::uint64_t, std::uint64_t>> gaps(std::uint64_t size) const;

private:
    std::map<std::uint64_t, std::uint64_t> endOf_;
};

// Finds the occurrences of a record's signature. It keeps the block of the file that it read last,
// so a search that moves forward reads every byte about once, and none of a hole.
class SignatureSearch {
public:
    // `source` must outlive the search.
    SignatureSearch(const SalvageSource& source, std::uint32_t signature);
    // The offset of the first occurrence that lies wholly in [from, to), or nullopt.
    std::optional<std::uint64_t> next(std::uint64_t from, std::uint64_t to);

private:
    bool isLoaded(std::uint64_t from) const;
    void load(std::uint64_t from, std::uint64_t to);

    const SalvageSource* source_;
    std::string signature_;
    std::uint64_t start_ = 0;
    std::vector<std::byte> block_;
};

// No local header that anybody writes is longer.
inline constexpr std::uint64_t kLikelyHeader = 512;

// What a local header says, right or wrong.
struct LocalHeader {
    ZipItem item;  // without `endOffset` and `directoryRecord`
    std::uint16_t flags;

    // Whether the header leaves the sizes to a descriptor after the data, so that only the data
    // itself shows where it ends.
    bool isMeasured() const;
    // The offset at which the data ends according to the sizes; nullopt if they say nothing. It may
    // be past the end of the file.
    std::optional<std::uint64_t> claimedEnd() const;
    // Whether the header says nothing else than the directory's `record`: name, checksum and sizes
    // are equal, except for numbers that the header leaves to a descriptor. If it leaves any, the
    // two may still describe different items of one name; see endOfSame().
    bool agreesWith(const ZipItem& record) const;
    // Whether the checksum or a size is left to a descriptor after the data.
    bool isIncomplete() const;
};

// Whether a local header could be at an offset by chance only (`Any`), because data may hold its
// signature, or is known to have been there (`Expected`).
enum class Place { Any, Expected };
// The local header at `offset`; nullopt if there is none. At any place, the signature and the other
// fields must be right. Where a header is expected, either of the two may be damaged.
std::optional<LocalHeader> localHeaderAt(const SalvageSource& source, std::uint64_t offset,
                                         Place place = Place::Any);

// Whether there may be a local header at `offset`, of which the name or the lengths are damaged.
bool mayBeHeaderAt(const SalvageSource& source, std::uint64_t offset);

// The name in the local header at `offset`, of which the rest may be damaged or cut off; empty if
// what is there cannot be a name.
std::string nameInHeader(const SalvageSource& source, std::uint64_t offset);

// The size of the descriptor at `offset` if it says what `record` does, otherwise 0.
std::size_t descriptorSize(const SalvageSource& source, std::uint64_t offset,
                           const ZipItem& record);

// The end of the item of `header`, with its descriptor, if that is the item that the directory
// describes as `record`; nullopt if it is another one. What the header leaves to a descriptor, the
// descriptor after the data must say, so the answer does not depend on where the numbers are.
std::optional<std::uint64_t> endOfSame(const SalvageSource& source, const LocalHeader& header,
                                       const ZipItem& record);

// The size in bytes of the directory record at `offset`, with name, extra fields and comment; 0 if
// there is no record that the file holds wholly.
std::uint64_t centralRecordSize(const SalvageSource& source, std::uint64_t offset);

}  // namespace opc::zip
