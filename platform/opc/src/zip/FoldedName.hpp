#pragma once

#include <compare>
#include <string>
#include <string_view>

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

}  // namespace opc::zip
