#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/ItemInput.hpp"
#include "platform/opc/src/zip/ZipFormat.hpp"

#include <fl/filesystem.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace opc::zip {

// A file that was a zip file before it was damaged, as those look at it who search what is left.
struct SalvageSource {
    std::shared_ptr<const ByteSource> bytes;
    std::uint64_t size;
    const fl::filesystem::path* file;  // for messages

    // As many of these bytes as there are.
    std::vector<std::byte> at(std::uint64_t offset, std::uint64_t count) const;
    // The number that stands there; nullopt behind the end.
    std::optional<std::uint32_t> number(std::uint64_t offset) const;
};

// Intervals of a file, no two of which overlap.
class Ranges {
public:
    bool overlap(std::uint64_t from, std::uint64_t to) const;
    // Where the interval ends that holds this place; nullopt when none does.
    std::optional<std::uint64_t> endAround(std::uint64_t place) const;
    // Makes one interval of those that overlap.
    void add(std::uint64_t from, std::uint64_t to);
    // By their starts.
    const std::map<std::uint64_t, std::uint64_t>& all() const { return endOf_; }

private:
    std::map<std::uint64_t, std::uint64_t> endOf_;
};

// Finds a record's signature, moving forward through the file.
class SignatureSearch {
public:
    SignatureSearch(const SalvageSource& source, std::uint32_t signature);
    std::optional<std::uint64_t> next(std::uint64_t from, std::uint64_t to);

private:
    void load(std::uint64_t from);

    const SalvageSource* source_;
    std::string signature_;
    std::uint64_t start_ = 0;
    std::vector<std::byte> block_;
};

// What a local header says, right or wrong. The item has no end yet.
struct LocalHeader {
    ZipItem item;
    std::uint16_t flags;

    // Whether the sizes stand behind the data.
    bool isMeasured() const;
    // Where the data ends by the sizes; nullopt when those say nothing.
    std::optional<std::uint64_t> claimedEnd() const;
    // Whether this is the header of the item that a directory's record describes.
    bool agreesWith(const ZipItem& record) const;
};

enum class Place { Any, Expected };
// The local header at this offset; nullopt when there is none. Where one is expected, either its signature
// or its other fields may be damaged. Elsewhere both must be right, since data may hold the signature.
std::optional<LocalHeader> localHeaderAt(const SalvageSource& source, std::uint64_t offset,
                                         Place place = Place::Any);

// The size of the directory record at this offset; 0 when there is none.
std::uint64_t centralRecordSize(const SalvageSource& source, std::uint64_t offset);

}  // namespace opc::zip
