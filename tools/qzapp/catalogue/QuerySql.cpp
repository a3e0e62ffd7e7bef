#include "tools/qzapp/catalogue/QuerySql.hpp"

#include <fmt/format.h>
#include <fl/i18n.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <system_error>
#include <utility>

#include "app/FieldValues.hpp"
#include "app/Suggestion.hpp"
#include "tools/qzapp/catalogue/Entry.hpp"

namespace qzapp {
namespace {

constexpr const char* kMatch = "a.id IN (SELECT rowid FROM words WHERE words MATCH ?)";
constexpr std::int64_t kNanoseconds = 1'000'000'000;

struct Choice {
    std::string_view name;
    const char* sql;
};

constexpr std::array kHas = {
    Choice{"screenshot", "a.screenshotFormat IS NOT NULL"},
    Choice{"errors", "a.errors > 0"},
    Choice{"warnings", "a.warnings > 0"},
    Choice{"notes", "a.notes > 0"},
};
constexpr std::array kIs = {
    Choice{"unreadable", "a.error IS NOT NULL"},
    Choice{"packaged", "a.Form = 'packaged'"},
    Choice{"text", "a.Form = 'text'"},
};
constexpr std::array kDuplicate = {
    Choice{"uuid",
           "a.Uuid COLLATE NOCASE IN (SELECT Uuid FROM apps WHERE Uuid <> '' "
           "GROUP BY Uuid COLLATE NOCASE HAVING count(*) > 1)"},
    Choice{"hash",
           "a.sha256 IN (SELECT sha256 FROM apps WHERE sha256 IS NOT NULL "
           "GROUP BY sha256 HAVING count(*) > 1)"},
};
// What apps that are duplicates are grouped by, in the order of kDuplicate.
constexpr std::array kGroups = {"a.Uuid COLLATE NOCASE", "a.sha256"};

const char* signOf(Relation relation) {
    switch (relation) {
        case Relation::Less:
            return "<";
        case Relation::LessOrEqual:
            return "<=";
        case Relation::Greater:
            return ">";
        case Relation::GreaterOrEqual:
            return ">=";
        default:
            return "=";
    }
}

bool isWords(const QueryNode& node) {
    if (node.kind == QueryNode::Kind::None) return false;
    if (node.kind == QueryNode::Kind::Term)
        return node.term.field == nullptr || node.term.field->kind == FieldKind::Words;
    return !node.nodes.empty() && std::ranges::all_of(node.nodes, isWords);
}

// Whether FTS5 takes it for part of a word, or it is half of a character. Beyond Latin-1, all but
// the blocks of punctuation and symbols are.
bool isPartOfWord(char16_t c) {
    if (c < 0x80) return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    const auto isWithin = [&](char16_t first, char16_t last) { return c >= first && c <= last; };
    if (c < 0xC0) return std::u16string_view(u"ª²³µ¹º¼½¾").find(c) != std::u16string_view::npos;
    return !isWithin(0x2000, 0x206F) && !isWithin(0x20A0, 0x20CF) && !isWithin(0x2190, 0x245F) &&
           !isWithin(0x2500, 0x2BFF) && !isWithin(0x3000, 0x3004) && !isWithin(0x3008, 0x3020);
}

// Between the marks that FTS5 wants around a text.
std::string quotedForMatch(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string escapedForLike(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '%' || c == '_' || c == '\\') escaped += '\\';
        escaped += c;
    }
    return escaped;
}

std::optional<std::int64_t> wholeNumber(std::string_view text) {
    std::int64_t number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (fault != std::errc() || end != text.data() + text.size() || number < 0) return std::nullopt;
    return number;
}

// The first nanosecond of a year, month or day, and the first one after it.
struct Span {
    std::int64_t begin = 0, end = 0;
};

std::int64_t nanosecondsUntil(std::chrono::sys_days day) {
    return std::chrono::seconds(day.time_since_epoch()).count() * kNanoseconds;
}

std::optional<Span> spanOf(std::string_view text) {
    using namespace std::chrono;
    const bool hasMonth = text.size() >= 7, hasDay = text.size() == 10;
    if (text.size() != 4 && text.size() != 7 && !hasDay) return std::nullopt;
    if ((hasMonth && text[4] != '-') || (hasDay && text[7] != '-')) return std::nullopt;
    const auto y = wholeNumber(text.substr(0, 4));
    const auto m = hasMonth ? wholeNumber(text.substr(5, 2)) : 1;
    const auto d = hasDay ? wholeNumber(text.substr(8, 2)) : 1;
    // Nanoseconds since 1970 in 63 bits reach so far.
    if (!y || !m || !d || *y < 1970 || *y > 2200) return std::nullopt;
    const year_month_day first{year(static_cast<int>(*y)), month(static_cast<unsigned>(*m)),
                               day(static_cast<unsigned>(*d))};
    if (!first.ok()) return std::nullopt;
    year_month_day next = first + years(1);
    if (hasMonth) next = first + months(1);
    const sys_days end = hasDay ? sys_days(first) + days(1) : sys_days(next);
    return Span{nanosecondsUntil(first), nanosecondsUntil(end)};
}

class Compiler {
public:
    explicit Compiler(std::string_view query) : query_(query) {}

    Sql condition(const QueryNode& node) const {
        if (isWords(node)) return {kMatch, {matchOf(node)}};
        switch (node.kind) {
            case QueryNode::Kind::Term:
                return conditionOf(node.term);
            case QueryNode::Kind::None: {
                Sql sql{"NOT coalesce(", {}};
                sql += condition(node.nodes.front());
                sql += ", 0)";  // what an app does not have is NULL
                return sql;
            }
            case QueryNode::Kind::Any:
                return joined(node.nodes, " OR ");
            default:
                return all(node);
        }
    }

    // What FTS5 is asked for a node that isWords().
    std::string matchOf(const QueryNode& node) const {
        if (node.kind == QueryNode::Kind::Term) return matchOf(node.term);
        const char* between = node.kind == QueryNode::Kind::Any ? " OR " : " AND ";
        std::string match;
        for (const QueryNode& each : node.nodes)
            match += (match.empty() ? "(" : between) + matchOf(each);
        return match + ")";
    }

    // What may be anywhere, wherever it stands in the query but behind NOT, as alternatives for
    // FTS5.
    std::string wordsIn(const QueryNode& node) const {
        if (node.kind == QueryNode::Kind::None) return {};
        if (node.kind == QueryNode::Kind::Term)
            return node.term.field == nullptr ? matchOf(node.term) : "";
        std::string words;
        for (const QueryNode& each : node.nodes) {
            const std::string more = wordsIn(each);
            if (!more.empty()) words += (words.empty() ? "" : " OR ") + more;
        }
        return words;
    }

private:
    [[noreturn]] void fail(const QueryTerm& term, const std::string& text) const {
        throw QueryError(query_, term.place, text);
    }

    Sql joined(std::span<const QueryNode> nodes, const char* between) const {
        Sql sql{"(", {}};
        for (const QueryNode& each : nodes) {
            if (sql.text.size() > 1) sql += between;
            sql += condition(each);
        }
        sql += ")";
        return sql;
    }

    // The words of the full text in one question, the rest each by itself.
    Sql all(const QueryNode& node) const {
        std::vector<QueryNode> words, others;
        for (const QueryNode& each : node.nodes)
            (isWords(each) ? words : others).push_back(each);
        if (words.size() > 1) {
            const QueryNode together{QueryNode::Kind::All, words, {}};
            words = {together};
        }
        others.insert(others.begin(), words.begin(), words.end());
        return others.empty() ? Sql{"1", {}} : joined(others, " AND ");
    }

    std::string matchOf(const QueryTerm& term) const {
        if (std::ranges::none_of(fl::i18n::utf8_to_ustring(term.value), isPartOfWord))
            fail(term, "words consist of letters and digits; here are none, so leave it out");
        std::string match = quotedForMatch(term.value) + (term.isStart ? " *" : "");
        if (term.field != nullptr) match = term.field->column + (" : " + match);
        return match;
    }

    Sql conditionOf(const QueryTerm& term) const {
        switch (term.field->kind) {
            case FieldKind::Release:
                return release(term);
            case FieldKind::Size:
                return size(term);
            case FieldKind::Time:
                return time(term);
            case FieldKind::Rule:
                return within("EXISTS (SELECT 1 FROM findings g WHERE g.app = a.id AND ",
                              text("g.rule", term), ")");
            case FieldKind::Has:
                return has(term);
            case FieldKind::Is:
                return {choose(term, kIs).sql, {}};
            case FieldKind::Duplicate:
                return {choose(term, kDuplicate).sql, {}};
            default:
                return text(term.field->column, term);
        }
    }

    static Sql within(const char* before, const Sql& inner, const char* after) {
        Sql sql{before, {}};
        sql += inner;
        sql += after;
        return sql;
    }

    static Sql text(const std::string& column, const QueryTerm& term) {
        if (term.isStart)
            return {column + " LIKE ? ESCAPE '\\'", {escapedForLike(term.value) + "%"}};
        return {column + " = ? COLLATE NOCASE", {term.value}};
    }

    Sql release(const QueryTerm& term) const {
        const bool isMinimum =
            std::string_view(term.field->column) == nameOf(Field::MinimumSupportedKORVALRelease);
        if (term.relation == Relation::Is)
            return text(std::string("a.") + term.field->column, term);
        const auto order = releaseOrder(term.value);
        if (!order || term.isStart) {
            fail(term, fmt::format("\"{}\" is not a release, such as R2026b", term.value));
        }
        return {fmt::format("a.{} {} ?", isMinimum ? "minimumOrder" : "releaseOrder",
                            signOf(term.relation)),
                {*order}};
    }

    Sql size(const QueryTerm& term) const {
        std::string_view digits = term.value;
        constexpr std::string_view kUnits = "kmg";
        int shift = 0;
        if (!digits.empty()) {
            const std::size_t unit = kUnits.find(static_cast<char>(digits.back() | 0x20));
            if (unit != std::string_view::npos) {
                shift = 10 * (static_cast<int>(unit) + 1);
                digits.remove_suffix(1);
            }
        }
        const auto number = wholeNumber(digits);
        if (!number || *number > (std::int64_t{1} << 32) || term.isStart)
            fail(term, fmt::format("\"{}\" is not a size, such as 500, 20k or 3M", term.value));
        return {fmt::format("{} {} ?", term.field->column, signOf(term.relation)),
                {*number << shift}};
    }

    Sql time(const QueryTerm& term) const {
        const auto span = spanOf(term.value);
        if (!span || term.isStart) {
            fail(term,
                 fmt::format("\"{}\" is not a year, month or day, such as 2026-11-22", term.value));
        }
        const std::string column = term.field->column;
        switch (term.relation) {
            case Relation::Less:
                return {column + " < ?", {span->begin}};
            case Relation::LessOrEqual:
                return {column + " < ?", {span->end}};
            case Relation::Greater:
                return {column + " >= ?", {span->end}};
            case Relation::GreaterOrEqual:
                return {column + " >= ?", {span->begin}};
            default:
                return {fmt::format("({0} >= ? AND {0} < ?)", column), {span->begin, span->end}};
        }
    }

    Sql has(const QueryTerm& term) const {
        const auto field = findFieldInAnyCase(term.value);
        if (field && !isList(*field)) return {fmt::format("a.{} <> ''", nameOf(*field)), {}};
        if (field) {
            return {fmt::format("EXISTS (SELECT 1 FROM {} l WHERE l.app = a.id)", nameOf(*field)),
                    {}};
        }
        return {choose(term, kHas).sql, {}};
    }

    const Choice& choose(const QueryTerm& term, std::span<const Choice> choices) const {
        std::vector<std::string_view> names;
        for (const Choice& choice : choices) {
            if (isSameInAnyCase(choice.name, term.value) && !term.isStart) return choice;
            names.push_back(choice.name);
        }
        const bool isHas = term.field->kind == FieldKind::Has;
        for (const Field field : isHas ? allFields() : std::span<const Field>())
            names.emplace_back(nameOf(field));
        std::string known;
        for (const Choice& choice : choices)
            known += (known.empty() ? "" : ", ") + std::string(choice.name);
        fail(term, fmt::format("unknown value \"{}\"{}", term.value,
                               didYouMean(term.value, names,
                                          fmt::format("; {}: takes {}{}", term.field->name, known,
                                                      isHas ? " and metadata fields" : ""))));
    }

    std::string_view query_;
};

const char* columnFor(Selected what) {
    if (what == Selected::Id) return "a.id";
    return what == Selected::File ? "a.File" : "(SELECT f.path FROM files f WHERE f.id = a.id)";
}

// By what the apps are grouped that are asked for as duplicates; null if they are not.
const char* groupOf(const QueryNode& node) {
    if (node.kind == QueryNode::Kind::None) return nullptr;
    if (node.kind == QueryNode::Kind::Term) {
        const QueryTerm& term = node.term;
        if (term.field == nullptr || term.field->kind != FieldKind::Duplicate) return nullptr;
        const auto* const found = std::ranges::find_if(kDuplicate, [&](const Choice& choice) {
            return isSameInAnyCase(choice.name, term.value);
        });
        return kGroups.at(static_cast<std::size_t>(found - kDuplicate.begin()));
    }
    for (const QueryNode& each : node.nodes) {
        if (const char* group = groupOf(each)) return group;
    }
    return nullptr;
}

}  // namespace

Sql& Sql::operator+=(const Sql& other) {
    text += other.text;
    values.insert(values.end(), other.values.begin(), other.values.end());
    return *this;
}

Sql& Sql::operator+=(std::string_view more) {
    text += more;
    return *this;
}

SqlStatement Sql::prepareFor(const SqlConnection& connection) const {
    SqlStatement statement = connection.prepare(text);
    int number = 1;
    for (const auto& value : values) {
        if (const auto* whole = std::get_if<std::int64_t>(&value)) {
            statement.bind(number++, *whole);
        } else {
            statement.bind(number++, std::string_view(std::get<std::string>(value)));
        }
    }
    return statement;
}

Sql selectApps(std::string_view query, const QueryNode& node, Selected what) {
    const Compiler compiler(query);
    Sql sql{fmt::format("SELECT {} FROM apps a WHERE ", columnFor(what)), {}};
    sql += compiler.condition(node);
    sql += " ORDER BY ";
    if (const char* group = groupOf(node)) sql += std::string(group) + ", ";
    const std::string words = compiler.wordsIn(node);
    if (!words.empty()) {
        sql += Sql{fmt::format("CASE WHEN {0} THEN 0 WHEN {0} THEN 1 ELSE 2 END, ", kMatch),
                   {"Name : (" + words + ")", "Summary : (" + words + ")"}};
    }
    sql += "a.Name COLLATE NOCASE, a.File";
    return sql;
}

Sql selectCount(std::string_view query, const QueryNode& node) {
    Sql sql{"SELECT count(*) FROM apps a WHERE ", {}};
    sql += Compiler(query).condition(node);
    return sql;
}

}  // namespace qzapp
