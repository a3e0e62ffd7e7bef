#pragma once

#include <opc/ZipArchive.hpp>

#include <fl/filesystem.hpp>

#include <compare>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace opc::zip {

// One byte of a name as the loosest reader compares it: ASCII case does not count, and a backslash
// is a slash. That comes before every other byte (no name holds a zero byte), so that what stands in
// a folder follows an item of the folder's name directly.
constexpr unsigned char foldedByte(char c) noexcept {
    if (c >= 'A' && c <= 'Z') return static_cast<unsigned char>(c + ('a' - 'A'));
    return static_cast<unsigned char>(c == '\\' || c == '/' ? '\0' : c);
}

// Order of names that holds two for equal when some reader might. Two such names may not stand in
// one archive.
constexpr std::weak_ordering compareFolded(std::string_view a, std::string_view b) noexcept {
    const std::size_t common = a.size() < b.size() ? a.size() : b.size();
    for (std::size_t i = 0; i < common; ++i) {
        if (a[i] == b[i]) continue;
        const auto order = foldedByte(a[i]) <=> foldedByte(b[i]);
        if (order != 0) return order;
    }
    return a.size() <=> b.size();
}

// Whether a reader that resolves names, as those of files are resolved, may take this one for another.
bool mayResolve(std::string_view name) noexcept;
// What such a reader takes it for: percent-encodings decoded, without empty segments, dot segments, and
// dots and blanks at the end of a segment.
std::string resolvedName(std::string_view name);

struct FoldedLess {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const noexcept {
        return compareFolded(a, b) < 0;
    }
};

// The items of an archive by their names. No two of them may have names that a reader could take for
// the same.
class NameIndex {
public:
    NameIndex() = default;
    // Of `items`, which must stay where they are. Throws opc::Exception about `file` for two names
    // that are equal in FoldedLess order.
    NameIndex(const std::vector<ZipItem>& items, const fl::filesystem::path& file);
    // Enters those that some readers resolve to other names under these names too. Throws
    // opc::Exception likewise.
    void addResolvedNames(const fl::filesystem::path& file);

    // In FoldedLess order.
    const std::vector<const ZipItem*>& inOrder() const noexcept { return byName_; }
    // The item whose name is equal in that order, or null.
    const ZipItem* find(std::string_view name) const noexcept;
    // The item of which this is a name, or may be one to a reader that resolves names; or null.
    const ZipItem* findSimilar(std::string_view name) const;

private:
    const ZipItem* findEntered(std::string_view name) const noexcept;

    std::vector<const ZipItem*> byName_;
    std::map<std::string, const ZipItem*, FoldedLess> byResolvedName_;
};

}  // namespace opc::zip
