#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tools/qzapp/catalogue/Query.hpp"
#include "tools/qzapp/catalogue/Sqlite.hpp"

namespace qzapp {

// A piece of SQL, and the values of its parameters in their order.
struct Sql {
    std::string text;
    std::vector<std::variant<std::int64_t, std::string>> values;

    Sql& operator+=(const Sql& other);
    Sql& operator+=(std::string_view more);
    SqlStatement prepareFor(const SqlConnection& connection) const;
};

// What is selected of an app.
enum class Selected { Id, File, Path };

// The statement that selects the apps that meet the query: those first in whose name one of its
// words is, then those with one in the summary, then the rest, each by name and path. Apps that are
// asked for because they have something in common with others stand next to these. Throws
// QueryError if a value makes no sense; `query` is the text of `node`.
Sql selectApps(std::string_view query, const QueryNode& node, Selected what);
// The statement that only counts them.
Sql selectCount(std::string_view query, const QueryNode& node);

}  // namespace qzapp
