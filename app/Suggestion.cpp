#include "app/Suggestion.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>
#include <vector>

namespace qzapp {
namespace {

bool isSame(char a, char b) {
    const auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    };
    return lower(a) == lower(b);
}

// How many characters have to be inserted, removed, replaced or exchanged with their neighbour to
// make one text of the other (the optimal string alignment distance).
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> twoBack, previous(b.size() + 1), row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        twoBack = std::exchange(previous, row);
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            row[j] = std::min({previous[j] + 1, row[j - 1] + 1,
                               previous[j - 1] + (isSame(a[i - 1], b[j - 1]) ? 0 : 1)});
            const bool isExchanged =
                i > 1 && j > 1 && isSame(a[i - 1], b[j - 2]) && isSame(a[i - 2], b[j - 1]);
            if (isExchanged) row[j] = std::min(row[j], twoBack[j - 2] + 1);
        }
    }
    return row[b.size()];
}

// No name is longer. Bounds the work on an argument of any length.
constexpr std::size_t kLongest = 64;

}  // namespace

bool isSameInAnyCase(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, isSame);
}

std::string_view nearest(std::string_view given, std::span<const std::string_view> names) {
    if (given.size() > kLongest) return {};
    std::string_view found;
    std::size_t least = std::max<std::size_t>(given.size(), 3) / 3 + 1;
    for (const std::string_view name : names) {
        const std::size_t count = distance(given, name);
        if (count >= least) continue;
        least = count;
        found = name;
    }
    return found;
}

std::string didYouMean(std::string_view given, std::span<const std::string_view> names,
                       const std::string& otherwise) {
    const std::string_view name = nearest(given, names);
    return name.empty() ? otherwise : fmt::format("; did you mean \"{}\"?", name);
}

}  // namespace qzapp
