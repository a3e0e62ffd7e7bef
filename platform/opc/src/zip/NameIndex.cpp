#include "platform/opc/src/zip/NameIndex.hpp"

#include <fl/i18n.hpp>
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

bool isControl(char c) noexcept {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7F';
}

bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

// Canonically composed. Bytes that are not UTF-8 stay as they are.
std::string composed(std::string name) {
    if (std::ranges::none_of(name, [](char c) { return (c & 0x80) != 0; })) return name;
    try {
        return fl::i18n::ustring_to_utf8(
            fl::i18n::to_composed(fl::i18n::utf8_to_ustring_strict(name)));
    } catch (const fl::i18n::ConversionError&) {
        return name;
    }
}

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Without what some readers drop wherever it is.
std::string withoutMarks(std::string name) {
    std::erase_if(name, isControl);
    if (name.starts_with(kByteOrderMark)) name.erase(0, kByteOrderMark.size());
    return name;
}

// Without the version number (";1") and the dots and blanks at its end, which some systems drop.
std::string_view stripped(std::string_view segment) {
    const auto other = std::find_if_not(segment.rbegin(), segment.rend(), isDigit);
    const auto digits = static_cast<std::size_t>(other.base() - segment.begin());
    if (digits > 0 && digits < segment.size() && segment[digits - 1] == ';') {
        segment = segment.substr(0, digits - 1);
    }
    return segment.substr(0, segment.find_last_not_of(". ") + 1);
}

bool isDrive(std::string_view segment) noexcept {
    const unsigned char letter = segment.empty() ? 0 : foldedByte(segment[0]);
    return segment.size() >= 2 && letter >= 'a' && letter <= 'z' && segment[1] == ':';
}

// Where a path under Windows begins after its drive, which may follow "//?/" or "//./".
std::size_t startOfPath(std::string_view name) {
    std::size_t start = 0;
    for (const std::string_view prefix : {"//?/", "//./"}) {
        const auto isSame = [](char a, char b) { return foldedByte(a) == foldedByte(b); };
        if (name.size() >= prefix.size() &&
            std::equal(prefix.begin(), prefix.end(), name.begin(), isSame)) {
            start = prefix.size();
        }
    }
    while (isDrive(name.substr(start)))
        start += 2;
    return start;
}

[[noreturn]] void refuseSameNames(const fl::filesystem::path& file, const ZipItem& one,
                                  const ZipItem& other) {
    refuseItem(ZipRule::Names, file, one.displayName(),
               "there is a second item of this name, \"" + foundation::shown(other.displayName()) +
                   "\": readers could see two different packages; remove one of them");
}

// `outer` and `inner` are names of the items by which some reader knows them.
void refuseItemInItem(const fl::filesystem::path& file, std::string_view outer, const ZipItem& item,
                      std::string_view inner, const ZipItem& other) {
    if (isSeparator(item.name.back()) || !isInFolder(inner, outer)) return;
    refuseItem(ZipRule::Names, file, other.displayName(),
               "is in a folder that is an item itself, \"" + foundation::shown(item.displayName()) +
                   "\": some readers see one of them only; rename one");
}

}  // namespace

bool mayResolve(std::string_view name) noexcept {
    char previous = '/';
    for (const char c : name) {
        const bool endsSegment = previous == '.' || previous == ' ' || isSeparator(previous);
        if (c == '%' || c == ';' || c == ':' || isControl(c) || (c & 0x80)) return true;
        if (isSeparator(c) && endsSegment) return true;
        previous = c;
    }
    return previous == '.' || previous == ' ' || isSeparator(previous);
}

bool isInFolder(std::string_view inner, std::string_view outer) noexcept {
    return inner.size() > outer.size() && isSeparator(inner[outer.size()]) &&
           compareFolded(outer, inner.substr(0, outer.size())) == 0;
}

std::string resolvedName(std::string_view name) {
    const std::string decoded = composed(withoutMarks(percentDecoded(name)));
    std::vector<std::string_view> segments;
    for (std::size_t start = startOfPath(decoded); start <= decoded.size();) {
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
        // Some readers take every name for UTF-8.
        for (const std::string& name :
             {resolvedName(item->displayName()), resolvedName(item->name)}) {
            const auto [found, isNew] = byResolvedName_.try_emplace(name, item);
            if (!isNew && found->second != item) refuseSameNames(file, *found->second, *item);
        }
    }
    for (const auto& [name, item] : byResolvedName_) {
        const ZipItem* const other = find(name);
        if (other && other != item) refuseSameNames(file, *item, *other);
    }
    refuseItemsInItems(file);
}

// In FoldedLess order everything in a folder directly follows the folder's name, so it is enough to
// compare each name with the next one of another item. Looking up each folder of each name would
// take quadratic time. An item has three names at most.
void NameIndex::refuseItemsInItems(const fl::filesystem::path& file) const {
    std::vector<std::pair<std::string_view, const ZipItem*>> known;
    known.reserve(byName_.size() + byResolvedName_.size());
    for (const ZipItem* const item : byName_)
        known.emplace_back(item->name, item);
    const auto middle = known.insert(known.end(), byResolvedName_.begin(), byResolvedName_.end());
    std::inplace_merge(known.begin(), middle, known.end(),
                       [](const auto& a, const auto& b) { return FoldedLess()(a.first, b.first); });
    for (auto at = known.begin(); at != known.end(); ++at) {
        const auto& [outer, item] = *at;
        const auto next = std::find_if(
            at, known.end(), [item = item](const auto& other) { return other.second != item; });
        if (next != known.end()) refuseItemInItem(file, outer, *item, next->first, *next->second);
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
