#include "platform/opc/src/zip/NameIndex.hpp"

#include <foundation/Shown.hpp>

#include "platform/opc/src/zip/ZipError.hpp"

#include <algorithm>
#include <utility>

namespace opc::zip {

namespace {

int hexValue(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    const unsigned char folded = foldedByte(c);
    return folded >= 'a' && folded <= 'f' ? folded - 'a' + 10 : -1;
}

bool isSeparator(char c) noexcept {
    return foldedByte(c) == foldedByte('/');
}

std::string percentDecoded(std::string_view name) {
    std::string decoded;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool isWhole = name[i] == '%' && i + 2 < name.size();
        const int high = isWhole ? hexValue(name[i + 1]) : -1;
        const int low = isWhole ? hexValue(name[i + 2]) : -1;
        const bool isEncoded = high >= 0 && low >= 0;
        decoded += isEncoded ? static_cast<char>(high * 16 + low) : name[i];
        if (isEncoded) i += 2;
    }
    return decoded;
}

// Without the dots and blanks at its end, which some file systems drop.
std::string_view stripped(std::string_view segment) {
    return segment.substr(0, segment.find_last_not_of(". ") + 1);
}

[[noreturn]] void refuseSameNames(const fl::filesystem::path& file, const ZipItem& one,
                                  const ZipItem& other) {
    refuseItem(ZipRule::Names, file, one.displayName(),
               "there is a second item of this name, \"" + foundation::shown(other.displayName()) +
                   "\": readers could see two different packages; remove one of them");
}

}  // namespace

bool mayResolve(std::string_view name) noexcept {
    char previous = '/';
    for (const char c : name) {
        const bool endsSegment = previous == '.' || previous == ' ' || isSeparator(previous);
        if (c == '%' || (isSeparator(c) && endsSegment)) return true;
        previous = c;
    }
    return previous == '.' || previous == ' ' || isSeparator(previous);
}

std::string resolvedName(std::string_view name) {
    const std::string decoded = percentDecoded(name);
    std::vector<std::string_view> segments;
    for (std::size_t start = 0; start <= decoded.size();) {
        const std::size_t end = std::min(decoded.find_first_of("/\\", start), decoded.size());
        const auto segment = std::string_view(decoded).substr(start, end - start);
        if (segment == ".." && !segments.empty()) segments.pop_back();
        if (const auto kept = stripped(segment); !kept.empty()) segments.push_back(kept);
        start = end + 1;
    }
    std::string resolved;
    for (const auto segment : segments)
        resolved.append(resolved.empty() ? "" : "/").append(segment);
    return resolved;
}

NameIndex::NameIndex(const std::vector<ZipItem>& items, const fl::filesystem::path& file) {
    // The names are folded once, so that comparing two is comparing memory. They are sorted and not
    // hashed because names can be chosen so that their hashes collide.
    std::size_t size = 0;
    for (const ZipItem& item : items)
        size += item.name.size();
    std::string folded;
    folded.reserve(size);
    std::vector<std::pair<std::string_view, const ZipItem*>> order;
    order.reserve(items.size());
    for (const ZipItem& item : items) {
        const std::size_t start = folded.size();
        for (const char c : item.name)
            folded += static_cast<char>(foldedByte(c));
        order.emplace_back(std::string_view(folded).substr(start), &item);
    }
    std::ranges::sort(order);
    byName_.reserve(order.size());
    for (const auto& [name, item] : order)
        byName_.push_back(item);
    const auto same = std::ranges::adjacent_find(order, {}, &decltype(order)::value_type::first);
    if (same != order.end()) refuseSameNames(file, *same[0].second, *same[1].second);
}

void NameIndex::addResolvedNames(const fl::filesystem::path& file) {
    for (const ZipItem* const item : byName_) {
        if (!mayResolve(item->name)) continue;
        const auto [found, isNew] = byResolvedName_.try_emplace(resolvedName(item->name), item);
        if (!isNew) refuseSameNames(file, *found->second, *item);
    }
    for (const auto& [name, item] : byResolvedName_) {
        const ZipItem* const other = find(name);
        if (other && other != item) refuseSameNames(file, *item, *other);
    }
}

const ZipItem* NameIndex::find(std::string_view name) const noexcept {
    const auto at = std::lower_bound(byName_.begin(), byName_.end(), name,
                                     [](const ZipItem* item, std::string_view wanted) {
                                         return FoldedLess()(item->name, wanted);
                                     });
    if (at == byName_.end() || FoldedLess()(name, (*at)->name)) return nullptr;
    return *at;
}

const ZipItem* NameIndex::findEntered(std::string_view name) const noexcept {
    if (const ZipItem* const found = find(name)) return found;
    const auto resolved = byResolvedName_.find(name);
    return resolved == byResolvedName_.end() ? nullptr : resolved->second;
}

const ZipItem* NameIndex::findSimilar(std::string_view name) const {
    if (const ZipItem* const found = findEntered(name)) return found;
    return mayResolve(name) ? findEntered(resolvedName(name)) : nullptr;
}

}  // namespace opc::zip
