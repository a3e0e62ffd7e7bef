#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/salvage/DamagedFile.hpp"
#include "platform/opc/src/salvage/Loss.hpp"
#include "platform/opc/src/zip/NameIndex.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace opc::zip {

// What was found under each name while no directory says what counts. If two items of one name
// differ and one of them is not surely the file's own, items of an archive within the file are
// among those that were found: a repaired copy must not be a mixture of two packages.
class Sightings {
public:
    // `hasNumbers` is false if the item's content is unknown.
    void add(const ZipItem& item, bool isSure, bool hasNumbers = true) {
        const auto content = hasNumbers ? std::optional(Content(item)) : std::nullopt;
        const auto [found, isNew] =
            first_.try_emplace(item.name, Sighting{content, isSure, item.headerOffset});
        const Sighting& other = found->second;
        if (isNew || other.place == item.headerOffset) return;
        if (content && other.content == content) return;
        if (!isSure || !other.isSure) {
            isMixed_ = true;
        } else if (content && other.content) {
            twice_.insert(item.name);
        }
    }
    // Remembers that the item whose header is at this offset, which was kept, may not be the
    // file's own.
    void addUnsure(std::uint64_t headerOffset) { unsure_.insert(headerOffset); }

    // Whether there are several items of this name that are surely the file's own.
    bool isTwice(const std::string& name) const { return twice_.contains(name); }
    // Why an item that was kept has to go after all; nullopt if it may stay.
    std::optional<Loss> lossOf(const ZipItem& item) const {
        if (isTwice(item.name)) return Loss::Twice;
        if (isMixed_ && unsure_.contains(item.headerOffset)) return Loss::Unsure;
        return std::nullopt;
    }

private:
    struct Sighting {
        std::optional<Content> content;  // nullopt if unknown
        bool isSure;
        std::uint64_t place;  // of the local header; two records of one place are of one item
    };

    std::map<std::string, Sighting, FoldedLess> first_;
    std::set<std::string, FoldedLess> twice_;
    std::set<std::uint64_t> unsure_;
    bool isMixed_ = false;
};

}  // namespace opc::zip
