#include "tools/qzapp/catalogue/Query.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "app/Suggestion.hpp"

namespace qzapp {
namespace {

constexpr std::array kFields = {
    QueryField{"name", FieldKind::Words, "Name"},
    QueryField{"summary", FieldKind::Words, "Summary"},
    QueryField{"author", FieldKind::Words, "Author"},
    QueryField{"description", FieldKind::Words, "Description"},
    QueryField{"product", FieldKind::Words, "RequiredProducts"},
    QueryField{"component", FieldKind::Words, "UserComponents"},
    QueryField{"image", FieldKind::Words, "ImageRelativePaths"},
    QueryField{"file", FieldKind::Words, "Stem"},
    QueryField{"release", FieldKind::Release, "KORVALRelease"},
    QueryField{"minimum", FieldKind::Release, "MinimumSupportedKORVALRelease"},
    QueryField{"version", FieldKind::Text, "a.Version"},
    QueryField{"type", FieldKind::Text, "a.AppType"},
    QueryField{"mode", FieldKind::Text, "a.ScreenshotMode"},
    QueryField{"uuid", FieldKind::Text, "a.Uuid"},
    QueryField{"hash", FieldKind::Text, "a.sha256"},
    QueryField{"form", FieldKind::Text, "a.Form"},
    QueryField{"path", FieldKind::Text, "a.File"},
    QueryField{"screenshot", FieldKind::Text, "a.screenshotFormat"},
    QueryField{"source", FieldKind::Text,
               "(SELECT s.label FROM files f JOIN sources s ON s.id = f.source WHERE f.id = a.id)"},
    QueryField{"size", FieldKind::Size, "(SELECT f.size FROM files f WHERE f.id = a.id)"},
    QueryField{"modified", FieldKind::Time, "(SELECT f.modified FROM files f WHERE f.id = a.id)"},
    QueryField{"rule", FieldKind::Rule, nullptr},
    QueryField{"has", FieldKind::Has, nullptr},
    QueryField{"is", FieldKind::Is, nullptr},
    QueryField{"duplicate", FieldKind::Duplicate, nullptr},
    // The names of metadata fields that have a shorter one above.
    QueryField{"RequiredProducts", FieldKind::Words, "RequiredProducts"},
    QueryField{"UserComponents", FieldKind::Words, "UserComponents"},
    QueryField{"ImageRelativePaths", FieldKind::Words, "ImageRelativePaths"},
    QueryField{"KORVALRelease", FieldKind::Release, "KORVALRelease"},
    QueryField{"MinimumSupportedKORVALRelease", FieldKind::Release,
               "MinimumSupportedKORVALRelease"},
    QueryField{"AppType", FieldKind::Text, "a.AppType"},
    QueryField{"ScreenshotMode", FieldKind::Text, "a.ScreenshotMode"},
    QueryField{"KVPKGVersion", FieldKind::Text, "a.KVPKGVersion"},
};

// So that neither this program nor SQLite runs out of stack.
constexpr std::size_t kMostDepth = 50;
constexpr std::size_t kMostTerms = 200;

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool isLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

bool hasOrder(FieldKind kind) {
    return kind == FieldKind::Release || kind == FieldKind::Size || kind == FieldKind::Time;
}

class Parser {
public:
    explicit Parser(std::string_view text) : text_(text) {}

    QueryNode parse() {
        QueryNode node = alternatives();
        if (at_ < text_.size()) fail(at_, "unexpected \")\"; there is no \"(\" for it");
        return node;
    }

private:
    [[noreturn]] void fail(std::size_t place, const std::string& text) const {
        throw QueryError(text_, place, text);
    }

    void skipSpaces() {
        while (at_ < text_.size() && isSpace(text_[at_]))
            ++at_;
    }

    bool isAtEnd() {
        skipSpaces();
        return at_ == text_.size() || text_[at_] == ')';
    }

    // Takes an operator if it is next, as a word of its own.
    bool take(std::string_view word) {
        skipSpaces();
        const std::size_t end = at_ + word.size();
        if (!text_.substr(at_).starts_with(word)) return false;
        if (end < text_.size() && !isSpace(text_[end]) && text_[end] != '(' && text_[end] != ')')
            return false;
        at_ = end;
        return true;
    }

    QueryNode alternatives() {
        QueryNode any{QueryNode::Kind::Any, {}, {}};
        std::size_t before = at_;
        do {
            any.nodes.push_back(sequence());
            const bool isLonely = any.nodes.back().nodes.empty() && any.nodes.size() > 1;
            if (isLonely) fail(before, "something is missing behind OR");
            skipSpaces();
            before = at_;
        } while (take("OR"));
        if (any.nodes.size() == 1) return std::move(any.nodes.front());
        return any;
    }

    QueryNode sequence() {
        QueryNode all;
        while (!isAtEnd()) {
            const std::size_t before = at_;
            if (take("OR")) {
                if (all.nodes.empty()) fail(before, "something is missing before OR");
                at_ = before;
                break;
            }
            if (take("AND") && (all.nodes.empty() || isAtEnd()))
                fail(before, "AND stands between two terms; write \"AND\" to search for the word");
            all.nodes.push_back(item());
        }
        return all;
    }

    QueryNode item() {
        const std::size_t start = at_;
        const bool isNegated = take("NOT") || takeMinus();
        if (isAtEnd()) fail(start, "something is missing behind it");
        if (isNegated && (take("NOT") || takeMinus()))
            fail(start, "excludes what is excluded; leave both NOT or - out");
        QueryNode inner = text_[at_] == '(' ? group() : term();
        if (!isNegated) return inner;
        QueryNode none{QueryNode::Kind::None, {}, {}};
        none.nodes.push_back(std::move(inner));
        return none;
    }

    bool takeMinus() {
        skipSpaces();
        const bool is = text_[at_] == '-';
        if (is) ++at_;
        return is;
    }

    QueryNode group() {
        const std::size_t start = at_++;
        if (++depth_ > kMostDepth) fail(start, "there are too many parentheses in each other");
        QueryNode inner = alternatives();
        --depth_;
        if (at_ == text_.size()) fail(start, "\"(\" has no \")\"");
        ++at_;
        if (inner.nodes.empty() && inner.kind != QueryNode::Kind::Term)
            fail(start, "there is nothing between \"(\" and \")\"");
        return inner;
    }

    QueryNode term() {
        if (++terms_ > kMostTerms)
            fail(at_, fmt::format("a query has at most {} terms", kMostTerms));
        QueryNode node{QueryNode::Kind::Term, {}, {}};
        QueryTerm& term = node.term;
        term.field = field();
        if (term.field != nullptr) term.relation = relation(*term.field);
        term.place = at_;
        if (at_ == text_.size() || isSpace(text_[at_]) || text_[at_] == ')')
            fail(at_, fmt::format("there is no value behind \"{}:\"", term.field->name));
        readValue(term);
        return node;
    }

    const QueryField* field() {
        std::size_t end = at_;
        while (end < text_.size() && isLetter(text_[end]))
            ++end;
        if (end == at_ || end == text_.size() || text_[end] != ':') return nullptr;
        const std::string_view name = text_.substr(at_, end - at_);
        const auto* const found = std::ranges::find_if(
            kFields, [&](const QueryField& each) { return isSameInAnyCase(each.name, name); });
        if (found == kFields.end()) {
            fail(at_, fmt::format("unknown field \"{}\"{}", name,
                                  didYouMean(name, queryFieldNames(),
                                             "; \"qzapp find --help\" lists them; put text with a "
                                             "colon between quotation marks")));
        }
        at_ = end + 1;
        return found;
    }

    Relation relation(const QueryField& field) {
        static constexpr std::array<std::pair<std::string_view, Relation>, 5> kRelations = {
            {{"<=", Relation::LessOrEqual},
             {">=", Relation::GreaterOrEqual},
             {"<", Relation::Less},
             {">", Relation::Greater},
             {"=", Relation::Is}}};
        for (const auto& [sign, relation] : kRelations) {
            if (!text_.substr(at_).starts_with(sign)) continue;
            if (!hasOrder(field.kind) && relation != Relation::Is) {
                fail(at_, fmt::format("\"{}\" only compares with release:, minimum:, size: and "
                                      "modified:; leave it out",
                                      sign));
            }
            at_ += sign.size();
            return relation;
        }
        return Relation::Is;
    }

    void readValue(QueryTerm& term) {
        const bool isQuoted = text_[at_] == '"';
        const std::size_t start = at_;
        if (isQuoted) ++at_;
        while (at_ < text_.size() && !isValueEnd(isQuoted)) {
            if (term.isStart) fail(at_ - 1, "\"*\" can only be at the end of a value");
            if (text_[at_] == '*') {
                term.isStart = true;
            } else {
                if (isQuoted && text_[at_] == '\\' && at_ + 1 < text_.size()) ++at_;
                term.value += text_[at_];
            }
            ++at_;
        }
        if (!isQuoted) return;
        if (at_ == text_.size()) fail(start, "the quotation mark has no second one");
        ++at_;
        if (at_ < text_.size() && text_[at_] == '*') {
            term.isStart = true;
            ++at_;
        }
    }

    bool isValueEnd(bool isQuoted) const {
        const char c = text_[at_];
        return isQuoted ? c == '"' : isSpace(c) || c == '(' || c == ')' || c == '"';
    }

    std::string_view text_;
    std::size_t at_ = 0, depth_ = 0, terms_ = 0;
};

std::size_t characters(std::string_view bytes) {
    return static_cast<std::size_t>(std::ranges::count_if(
        bytes, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

}  // namespace

QueryError::QueryError(std::string_view query, std::size_t place, const std::string& text)
    : UsageError(fmt::format("the query at character {}", characters(query.substr(0, place)) + 1),
                 text) {}

QueryNode parseQuery(std::string_view query) {
    return Parser(query).parse();
}

std::vector<std::string_view> queryFieldNames() {
    std::vector<std::string_view> names;
    for (const QueryField& field : kFields)
        names.emplace_back(field.name);
    return names;
}

}  // namespace qzapp
