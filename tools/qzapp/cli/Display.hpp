#pragma once

#include <foundation/ustring.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace qzapp {

// Lines of text, each broken at blanks to at most `width` characters where it
// can be. Never empty.
std::vector<std::string> visibleLines(foundation::ustring_view text, std::size_t width);

// A line of text broken at blanks to at most `width` characters where it can be. Never empty.
std::vector<std::string> wrapped(const std::string& line, std::size_t width);

// Characters on a line of standard output; a default when it is no terminal.
std::size_t outputWidth();
bool outputIsTerminal();

// Whether standard output is a terminal that shows colours and its user wants them (no NO_COLOR).
bool outputIsColoured();
enum class Style { Plain, Label, Heading, Added, Removed, Place };
// With the terminal's codes for the style around it, where the output is coloured.
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
