#include "textapp/PatternScanner.hpp"

#include <pthread.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <regex>
#include <string>
#include <string_view>
#include <system_error>

namespace appserialization::textapp {

namespace {

// In bytes. Compiling a pattern takes about 420 bytes of stack for each character of the pattern.
// Between two accesses to the text, a search takes about 1 KiB for each character of a name. With
// names up to this length, both fit into kReserve.
constexpr std::size_t kLongestName = 64;

// Bytes of the thread's stack that a search leaves free.
constexpr std::size_t kReserve = 48 * 1024;
// Bytes that a search uses if the thread's stack is unknown, because a host may run on its own
// stack.
constexpr std::size_t kUnknownStack = 48 * 1024;
// The most that a search uses of any stack, in bytes.
constexpr std::size_t kLargeStack = 6 * 1024 * 1024;

// The most accesses to the text in one lookup; they take about a quarter of a second.
constexpr std::size_t kMaxSteps = std::size_t{1} << 24;

std::uintptr_t stackPosition() {
    return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
}

// How many bytes the stack may grow from here. Throws if that does not even suffice to compile a
// pattern.
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

// The stack and the number of steps that a search may use. The iterators through which it accesses
// the text call spend() each time, which throws when either is used up.
class SearchBudget {
public:
    SearchBudget() : lowestPosition_(stackPosition() - stackToUse()) {}

    void spend() {
        if (stackPosition() < lowestPosition_)
            throw std::regex_error(std::regex_constants::error_stack);
        if (++steps_ > kMaxSteps) throw std::regex_error(std::regex_constants::error_complexity);
    }

private:
    std::uintptr_t lowestPosition_;
    std::size_t steps_ = 0;
};

// An iterator over the text that calls spend() each time it is dereferenced or compared.
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
        // Some loops of the search compare iterators without dereferencing any.
        if (a.budget_ != nullptr) a.budget_->spend();
        return a.position_ == b.position_;
    }

    const char* position() const { return position_; }

private:
    const char* position_ = nullptr;
    SearchBudget* budget_ = nullptr;
};

using Match = std::match_results<MeteredIterator>;

// The length of a name with everything that its repeat counts ("{3}") repeat written out. It may be
// greater than that, because any number after a brace or a comma is taken for a count.
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

// A name, to be inserted into a pattern. Throws if its expanded form is too long.
const std::string& patternPiece(const std::string& name) {
    if (expandedLength(name) > kLongestName) {
        throw std::regex_error(std::regex_constants::error_stack);
    }
    return name;
}

// A text and a pattern to search in it. All searches together have one budget.
class PatternSearch {
public:
    PatternSearch(std::string_view text, const std::string& pattern)
        : text_(text), pattern_(pattern, std::regex::ECMAScript) {}

    // The first group of the first match.
    std::optional<std::string_view> first() {
        Match match;
        if (!search(0, match)) return std::nullopt;
        return firstGroup(match);
    }

    // The first group of each match, every search starting at the end of the match before.
    std::vector<std::string_view> all() {
        std::vector<std::string_view> groups;
        Match match;
        for (std::size_t from = 0; search(from, match); from = offset(match[0].second)) {
            // After an empty match, the next search would find the same one again, endlessly.
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

    static std::string_view firstGroup(const Match& match) {
        if (!match[1].matched) return "";
        return {match[1].first.position(), match[1].second.position()};
    }

    SearchBudget budget_;  // comes first, because compiling the pattern needs stack, too
    std::string_view text_;
    std::regex pattern_;
};

std::string elementPattern(const std::string& elementName) {
    const std::string& name = patternPiece(elementName);
    return "<" + name + R"([\s\S]*?>([\s\S]*?)</)" + name + ">";
}

}  // namespace

bool isPattern(std::string_view name) {
    // A lone "]" or "}" stands for itself.
    return name.find_first_of(R"(^$\.*+?()[{|)") != std::string_view::npos;
}

std::optional<std::string_view> findSectionByPattern(std::string_view text,
                                                     const std::string& sectionName) {
    const std::string& name = patternPiece(sectionName);
    return PatternSearch(text, R"(%\[)" + name + R"(\][\s\S]*?\{([\s\S]*?)%\})").first();
}

std::optional<std::string_view> findElementByPattern(std::string_view text,
                                                     const std::string& elementName) {
    return PatternSearch(text, elementPattern(elementName)).first();
}

std::vector<std::string_view> findElementsByPattern(std::string_view text,
                                                    const std::string& elementName) {
    return PatternSearch(text, elementPattern(elementName)).all();
}

std::optional<std::string_view> findAttributeByPattern(std::string_view text,
                                                       const std::string& elementName,
                                                       const std::string& attributeName) {
    return PatternSearch(text, "<" + patternPiece(elementName) + R"([\s\S]*?)" +
                                   patternPiece(attributeName) +
                                   R"([\s\S]*?=[\s\S]*?'(.*?)'[\s\S]*?>)")
        .first();
}

}  // namespace appserialization::textapp
