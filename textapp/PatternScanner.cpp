#include "textapp/PatternScanner.hpp"

#include <fl/i18n.hpp>

#include <pthread.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <regex>
#include <string>
#include <string_view>

namespace appserialization::textapp {

namespace {

// Compiling recurses at most about 420 bytes a character of a pattern, and a search about 1 KiB a
// character of a name between two looks at the text. Names of this length keep both within kReserve.
constexpr std::size_t kLongestName = 64;

// What a search leaves of the thread's stack, and what it may use when the thread's stack is not
// known (a host may run its own).
constexpr std::size_t kReserve = 48 * 1024;
constexpr std::size_t kUnknownStack = 48 * 1024;
constexpr std::size_t kLargeStack = 6 * 1024 * 1024;

// Looks at the text that one lookup may take: a quarter of a second.
constexpr std::size_t kMostSteps = std::size_t{1} << 24;

std::uintptr_t stackPosition() {
    return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
}

// How far the stack may grow from here. Throws when not even a pattern can be compiled on it.
std::size_t stackToUse() {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return kUnknownStack;
    void* lowest = nullptr;
    std::size_t size = 0;
    pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);
    const std::size_t left = stackPosition() - reinterpret_cast<std::uintptr_t>(lowest);
    if (left > size) return kUnknownStack;
    if (left < kReserve) throw std::regex_error(std::regex_constants::error_stack);
    return std::min(left - kReserve, kLargeStack);
}

// What a search may still use. The search looks at the text through iterators that ask here first.
class SearchBudget {
public:
    SearchBudget() : lowestPosition_(stackPosition() - stackToUse()) {}

    void spend() {
        if (stackPosition() < lowestPosition_)
            throw std::regex_error(std::regex_constants::error_stack);
        if (++steps_ > kMostSteps) throw std::regex_error(std::regex_constants::error_complexity);
    }

private:
    std::uintptr_t lowestPosition_;
    std::size_t steps_ = 0;
};

// A position in the text whose every use is paid for.
class MeteredIterator {
public:
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    MeteredIterator() = default;
    MeteredIterator(const char* position, SearchBudget* budget)
        : position_(position), budget_(budget) {}

    reference operator*() const {
        budget_->spend();
        return *position_;
    }
    MeteredIterator& operator++() {
        ++position_;
        return *this;
    }
    MeteredIterator operator++(int) { return {position_++, budget_}; }
    MeteredIterator& operator--() {
        --position_;
        return *this;
    }
    MeteredIterator operator--(int) { return {position_--, budget_}; }
    friend bool operator==(const MeteredIterator& a, const MeteredIterator& b) {
        // The search compares where it loops without moving.
        if (a.budget_ != nullptr) a.budget_->spend();
        return a.position_ == b.position_;
    }

    const char* position() const { return position_; }

private:
    const char* position_ = nullptr;
    SearchBudget* budget_ = nullptr;
};

using Match = std::match_results<MeteredIterator>;

// The length of a name when what its counts repeat is written out; at least that, since any number
// behind a brace or a comma is taken for a count.
std::size_t expandedLength(std::string_view name) {
    std::size_t length = name.size();
    for (std::size_t i = 0; i + 1 < name.size(); ++i) {
        if (name[i] != '{' && name[i] != ',') continue;
        std::size_t count = 0;
        const auto parsed = std::from_chars(name.data() + i + 1, name.data() + name.size(), count);
        if (parsed.ec == std::errc::result_out_of_range) return std::string_view::npos;
        if (count > kLongestName) return count;
        length *= std::max<std::size_t>(count, 1);
        if (length > kLongestName) break;
    }
    return length;
}

// A name as it goes into a pattern.
std::string patternPiece(const ustring& name) {
    std::string piece = fl::i18n::ustring_to_utf8(name);
    if (expandedLength(piece) > kLongestName) {
        throw std::regex_error(std::regex_constants::error_stack);
    }
    return piece;
}

// One text that a pattern is searched in.
class PatternSearch {
public:
    PatternSearch(const ustring& text, const std::string& pattern)
        : text_(fl::i18n::ustring_to_utf8(text)), pattern_(pattern, std::regex::ECMAScript) {}

    // The first group of the first match.
    std::optional<ustring> first() {
        Match match;
        if (!search(0, match)) return std::nullopt;
        return firstGroup(match);
    }

    // The first group of each match, every search starting at the end of the match before.
    std::vector<ustring> all() {
        std::vector<ustring> groups;
        Match match;
        for (std::size_t from = 0; search(from, match); from = offset(match[0].second)) {
            // The next search would find the same again, without end.
            if (match[0].first == match[0].second)
                throw std::regex_error(std::regex_constants::error_complexity);
            groups.push_back(firstGroup(match));
        }
        return groups;
    }

private:
    bool search(std::size_t from, Match& match) {
        return std::regex_search(MeteredIterator(text_.data() + from, &budget_),
                                 MeteredIterator(text_.data() + text_.size(), &budget_), match,
                                 pattern_);
    }

    std::size_t offset(MeteredIterator at) const {
        return static_cast<std::size_t>(at.position() - text_.data());
    }

    // Empty when the group took no part. A group may cut characters: a name may hold ".".
    ustring firstGroup(const Match& match) const {
        if (!match[1].matched) return {};
        return fl::i18n::utf8_to_ustring(
            std::string_view(match[1].first.position(), match[1].second.position()));
    }

    SearchBudget budget_;  // before the pattern, whose making needs stack too
    std::string text_;
    std::regex pattern_;
};

std::string elementPattern(const ustring& elementName) {
    const std::string name = patternPiece(elementName);
    return "<" + name + R"([\s\S]*?>([\s\S]*?)</)" + name + ">";
}

}  // namespace

bool isPattern(const ustring& name) {
    // "]" and "}" alone stand for themselves.
    return name.find_first_of(uR"(^$\.*+?()[{|)") != ustring::npos;
}

std::optional<ustring> findSectionByPattern(const ustring& text, const ustring& sectionName) {
    const std::string name = patternPiece(sectionName);
    return PatternSearch(text, R"(%\[)" + name + R"(\][\s\S]*?\{([\s\S]*?)%\})").first();
}

std::optional<ustring> findElementByPattern(const ustring& text, const ustring& elementName) {
    return PatternSearch(text, elementPattern(elementName)).first();
}

std::vector<ustring> findElementsByPattern(const ustring& text, const ustring& elementName) {
    return PatternSearch(text, elementPattern(elementName)).all();
}

std::optional<ustring> findAttributeByPattern(const ustring& text, const ustring& elementName,
                                              const ustring& attributeName) {
    const std::string element = patternPiece(elementName);
    const std::string attribute = patternPiece(attributeName);
    return PatternSearch(text, "<" + element + R"([\s\S]*?)" + attribute +
                                   R"([\s\S]*?=[\s\S]*?'(.*?)'[\s\S]*?>)")
        .first();
}

}  // namespace appserialization::textapp
