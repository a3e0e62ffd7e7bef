#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tools/qzapp/cli/Report.hpp"

namespace qzapp {

// What is asked of a catalogue. The grammar, with spaces between its words:
//
//     query    = sequence { "OR" sequence }
//     sequence = [ item { [ "AND" ] item } ]
//     item     = [ "-" | "NOT" ] ( "(" query ")" | term )
//     term     = [ FIELD ":" [ "=" | "<" | "<=" | ">" | ">=" ] ] value
//     value    = WORD | '"' TEXT '"' [ "*" ]
//
// A "*" at the end of a value stands for any more characters. In TEXT, "\" takes the special
// meaning from the character after it.

// What a field holds, and so how it is asked for.
enum class FieldKind {
    Words,      // words of the full text
    Text,       // a text that is compared as a whole, in any case
    Release,    // compared as releases
    Size,       // bytes: 100, 20k, 3M, 1G
    Time,       // a year, month or day
    Rule,       // a rule that a finding is about
    Has,        // a metadata field that is not empty, or something else that an app may have
    Is,         // what kind of app it is
    Duplicate,  // of which there is another app with the same
};

struct QueryField {
    const char* name;
    FieldKind kind;
    const char* column;  // for the kinds that have one
};

enum class Relation { Is, Less, LessOrEqual, Greater, GreaterOrEqual };

struct QueryTerm {
    const QueryField* field = nullptr;  // none for a word that may be anywhere
    Relation relation = Relation::Is;
    std::string value;
    bool isStart = false;   // the value is the start of what is looked for
    std::size_t place = 0;  // of the value in the query, in bytes
};

struct QueryNode {
    enum class Kind {
        All,
        Any,
        None,
        Term
    };  // all of the nodes, one of them, not the only one; a term
    Kind kind = Kind::All;
    std::vector<QueryNode> nodes;
    QueryTerm term;
};

// A query that is wrong. The message says where, counted in characters from 1.
class QueryError : public UsageError {
public:
    QueryError(std::string_view query, std::size_t place, const std::string& text);
};

// Throws QueryError. An empty query is met by every app.
QueryNode parseQuery(std::string_view query);

// The names of all fields, the short ones before the metadata fields that they stand for.
std::vector<std::string_view> queryFieldNames();

}  // namespace qzapp
