#pragma once

#include <foundation/ustring.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace qzapp {

// The lines of a text, made visible() and wrapped(). Never empty.
std::vector<std::string> visibleLines(foundation::ustring_view text, std::size_t width);

// A line broken at blanks into lines of at most `width` columns; a longer word gets a line of its
// own. Never empty.
std::vector<std::string> wrapped(const std::string& line, std::size_t width);

// The columns of the terminal that this descriptor is; 80 if it does not tell.
std::size_t terminalWidth(int descriptor);

inline constexpr std::size_t kUnlimitedWidth = std::string::npos;

// The columns of the terminal that standard output is, less those of an indentation.
// kUnlimitedWidth if it is not a terminal, because what reads a pipe breaks lines itself or wants
// none broken.
std::size_t outputWidth(std::size_t indent = 0);
bool outputIsTerminal();

// Whether standard output is a terminal that shows colours and NO_COLOR is not set.
bool outputIsColoured();
enum class Style { Plain, Label, Heading, Added, Removed, Place, Error, Warning, Note };
// `text` in this style if the output is coloured, otherwise as it is.
std::string styled(const std::string& text, Style style);

// Rows of text in aligned columns, two blanks apart. If the terminal is too narrow for a table,
// values are cut, or the last column is wrapped, or columns stand below their rows, indented.
class Table {
public:
    enum class Align { Left, Right };
    // Whether a column may be wrapped or go below its row, or its values are cut, the longest
    // first.
    enum class IfNarrow { Stays, GoesBelow, IsCut };
    struct Column {
        std::string title;
        Align align = Align::Left;
        IfNarrow ifNarrow = IfNarrow::Stays;
    };

    explicit Table(std::vector<Column> columns);
    void add(std::vector<std::string> row);
    std::string text() const;

private:
    using Row = std::vector<std::string>;
    enum class Fit { AsIs, LastWrapped, Below };

    std::vector<std::size_t> widths() const;
    void shrink(std::vector<std::size_t>& widths) const;
    Fit fitOf(const std::vector<std::size_t>& widths) const;
    void append(std::string& out, const Row& row, const std::vector<std::size_t>& widths,
                Fit fit) const;

    std::vector<Column> columns_;
    std::vector<Row> rows_;  // the titles first
};

}  // namespace qzapp
