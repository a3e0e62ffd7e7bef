#include "textapp/TextSearch.hpp"

#include <fl/i18n.hpp>

#include <cstdint>
#include <vector>

namespace appserialization::textapp {

namespace {

// The number of code units that are tested together. The loops over a block have a constant count
// and no early exit, so that the compiler turns them into vector instructions.
constexpr std::size_t kBlock = 64;

// Comparing at every candidate takes time proportional to both lengths, as for "aaaa" in
// "aaaaaaaa". Up to this length of `wanted` that is a constant factor; beyond it we use an
// algorithm with a table.
constexpr std::size_t kLongText = 64;

bool blockHasPair(const char16_t* block, char16_t first, char16_t second) {
    std::uint16_t found = 0;
    for (std::size_t i = 0; i < kBlock; ++i) {
        const bool isPair = (block[i] == first) & (block[i + 1] == second);
        found = static_cast<std::uint16_t>(found | isPair);
    }
    return found != 0;
}

bool blockHasUnit(const char16_t* block, char16_t unit) {
    std::uint16_t found = 0;
    for (std::size_t i = 0; i < kBlock; ++i) {
        found = static_cast<std::uint16_t>(found | (block[i] == unit));
    }
    return found != 0;
}

bool blockHasSurrogate(const char16_t* block) {
    std::uint16_t found = 0;
    for (std::size_t i = 0; i < kBlock; ++i) {
        found = static_cast<std::uint16_t>(found | ((block[i] & 0xF800) == 0xD800));
    }
    return found != 0;
}

// Skips blocks that cannot hold the start of `wanted`, and returns the index of the first one that
// may. If there is none, returns an index that leaves less than a block.
std::size_t skipBlocks(ustring_view text, ustring_view wanted, std::size_t from) {
    const std::size_t lookahead = wanted.size() > 1 ? 1 : 0;
    while (text.size() - from >= kBlock + lookahead) {
        const char16_t* const block = text.data() + from;
        if (lookahead ? blockHasPair(block, wanted[0], wanted[1])
                      : blockHasUnit(block, wanted[0])) {
            break;
        }
        from += kBlock;
    }
    return from;
}

std::size_t findShort(ustring_view text, ustring_view wanted, std::size_t from) {
    while (true) {
        from = skipBlocks(text, wanted, from);
        const std::size_t blockEnd = from + kBlock;
        // The match has to start in this block, but may extend beyond it.
        const ustring_view reach = text.substr(0, blockEnd + wanted.size() - 1);
        const std::size_t found = reach.find(wanted, from);
        if (found != ustring_view::npos || reach.size() == text.size()) return found;
        from = blockEnd;
    }
}

// For each prefix of `wanted`, by its length: the length of its longest border, which is a shorter
// prefix with which it also ends.
std::vector<std::size_t> borderLengths(ustring_view wanted) {
    std::vector<std::size_t> borders(wanted.size() + 1, 0);
    std::size_t length = 0;
    for (std::size_t i = 1; i < wanted.size(); ++i) {
        while (length > 0 && wanted[i] != wanted[length]) {
            length = borders[length];
        }
        if (wanted[i] == wanted[length]) ++length;
        borders[i + 1] = length;
    }
    return borders;
}

// The algorithm of Knuth, Morris and Pratt, which never goes back in the text.
std::size_t findLong(ustring_view text, ustring_view wanted, std::size_t from) {
    const std::vector<std::size_t> borders = borderLengths(wanted);
    std::size_t matched = 0;
    for (std::size_t i = from; i < text.size(); ++i) {
        while (matched > 0 && text[i] != wanted[matched]) {
            matched = borders[matched];
        }
        if (text[i] == wanted[matched]) ++matched;
        if (matched == wanted.size()) return i + 1 - matched;
    }
    return ustring_view::npos;
}

}  // namespace

std::size_t findText(ustring_view text, ustring_view wanted, std::size_t from) {
    if (from > text.size() || wanted.size() > text.size() - from) return ustring_view::npos;
    if (wanted.empty()) return from;
    return wanted.size() > kLongText ? findLong(text, wanted, from) : findShort(text, wanted, from);
}

void requireValidUtf16(ustring_view text) {
    std::size_t from = 0;
    while (text.size() - from >= kBlock && !blockHasSurrogate(text.data() + from)) {
        from += kBlock;
    }
    // There is no surrogate before `from`, so `rest` does not start within a pair.
    const ustring_view rest = text.substr(from);
    if (fl::i18n::find_unpaired_surrogate(rest) != ustring_view::npos) {
        fl::i18n::ustring_to_utf8(text);  // throws, with the index in the whole text
    }
}

}  // namespace appserialization::textapp
