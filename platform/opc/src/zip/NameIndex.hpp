#pragma once

#include <opc/ZipArchive.hpp>

#include <fl/filesystem.hpp>

#include <compare>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace opc::zip {

// One byte of a name as the loosest reader compares it: ASCII letters in lower case, and a zero
// byte for a slash or a backslash. Names hold no zero byte, so a slash comes before every other
// byte, and what is in a folder directly follows an item with the folder's name.
constexpr unsigned char foldedByte(char c) noexcept {
    if (c >= 'A' && c <= 'Z') return static_cast<unsigned char>(c + ('a' - 'A'));
    return static_cast<unsigned char>(c == '\\' || c == '/' ? '\0' : c);
}

// Compares names byte by byte as foldedByte() gives them. Names that are equal in this order may
// not both be in one archive, because some reader would take them for one.
constexpr std::weak_ordering compareFolded(std::string_view a, std::string_view b) noexcept {
    const std::size_t common = a.size() < b.size() ? a.size() : b.size();
    for (std::size_t i = 0; i < common; ++i) {
        if (a[i] == b[i]) continue;
        const auto order = foldedByte(a[i]) <=> foldedByte(b[i]);
        if (order != 0) return order;
    }
    return a.size() <=> b.size();
}

// A quick test of whether resolvedName() may be another name. If it returns false, the two are
// equal in FoldedLess order.
bool mayResolve(std::string_view name) noexcept;
// The name (UTF-8) as the loosest reader sees it that makes a path of a file system of it:
// percent-encodings are decoded and characters composed; control characters, a byte-order mark in
// front, a drive, empty segments, dot segments, and at the end of a segment a version number, dots
// and blanks are dropped.
std::string resolvedName(std::string_view name);

// Whether `inner` is the name of something in the folder `outer`, for the loosest reader.
bool isInFolder(std::string_view inner, std::string_view outer) noexcept;

struct FoldedLess {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const noexcept {
        return compareFolded(a, b) < 0;
    }
};

// Finds the items of an archive by name, in logarithmic time. It points into the vector of items
// that it was made from, whose items must stay where they are. Once made, it is safe to use from
// several threads.
class NameIndex {
public:
    NameIndex() = default;
    // Sorts `items` by name. Throws ZipRefusal about `file` if two names are equal in FoldedLess
    // order.
    NameIndex(const std::vector<ZipItem>& items, const fl::filesystem::path& file);
    // Makes items with a name that some readers resolve to another one known under that name too,
    // for findSimilar(). Throws ZipRefusal about `file` if that is the name of another item, or if
    // an item is in a folder with the name of another item that is not a folder. A salvaged archive
    // does without: of such items it has one.
    void addResolvedNames(const fl::filesystem::path& file);

    // All items in FoldedLess order.
    const std::vector<const ZipItem*>& inOrder() const noexcept { return byName_; }
    // The item whose name is equal in FoldedLess order, or null.
    const ZipItem* find(std::string_view name) const noexcept;
    // The item that some reader would find by this name, or null: either name may be resolved.
    const ZipItem* findSimilar(std::string_view name) const;

private:
    void refuseItemsInItems(const fl::filesystem::path& file) const;
    const ZipItem* findEntered(std::string_view name) const noexcept;

    std::vector<const ZipItem*> byName_;
    std::map<std::string, const ZipItem*, FoldedLess> byResolvedName_;
};

}  // namespace opc::zip
