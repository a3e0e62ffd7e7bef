#pragma once

#include <foundation/ustring.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace qzapp {

// The lines of a text, made visible() and wrapped(). Never empty.
std::vector<std::string> visibleLines(foundation::ustring_view text, std::size_t width);

// A line broken at blanks into lines of at most `width` characters; a longer word gets a line of
// its own. Never empty.
std::vector<std::string> wrapped(const std::string& line, std::size_t width);

// The width of the terminal that standard output is, in characters; 100 if it is not a terminal.
std::size_t outputWidth();
bool outputIsTerminal();

// Whether standard output is a terminal that shows colours and NO_COLOR is not set.
bool outputIsColoured();
enum class Style { Plain, Label, Heading, Added, Removed, Place };
// `text` in this style if the output is coloured, otherwise as it is.
std::string styled(const std::string& text, Style style);

// Rows of text in aligned columns, two blanks apart.
class Table {
public:
    enum class Align { Left, Right };
    struct Column {
        const char* title;
        Align align;
    };

    explicit Table(std::vector<Column> columns);
    void add(std::vector<std::string> row);
    std::string text() const;

private:
    std::vector<std::size_t> widths() const;
    void append(std::string& out, const std::vector<std::string>& row,
                const std::vector<std::size_t>& widths) const;

    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;  // the titles first
};

}  // namespace qzapp
