#include "tools/qzapp/cli/TerminalText.hpp"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "app/VisibleText.hpp"

namespace qzapp {
namespace {

using foundation::ustring_view;

constexpr std::size_t kDefaultWidth = 100;

// The terminal's codes in the order of Style: none, faint, bold, green, red, cyan.
constexpr std::array<const char*, 6> kCodes = {"", "2", "1", "32", "31", "36"};

// The number of code points, which is close enough to the width for breaking and aligning.
std::size_t lengthOf(std::string_view utf8) {
    return static_cast<std::size_t>(std::count_if(utf8.begin(), utf8.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

}  // namespace

std::vector<std::string> visibleLines(ustring_view text, std::size_t width) {
    std::vector<std::string> lines;
    while (true) {
        const std::size_t end = text.find(u'\n');
        ustring_view line = text.substr(0, end);
        if (line.ends_with(u'\r')) line.remove_suffix(1);
        for (std::string& part : wrapped(visible(line), width))
            lines.push_back(std::move(part));
        if (end == ustring_view::npos) return lines;
        text.remove_prefix(end + 1);
    }
}

std::vector<std::string> wrapped(const std::string& line, std::size_t width) {
    std::vector<std::string> lines;
    std::string current;
    std::size_t length = 0;  // of `current`; counting it again for each word would be quadratic
    std::size_t start = 0;
    while (start <= line.size()) {
        const std::size_t end = std::min(line.find(' ', start), line.size());
        const std::string word = line.substr(start, end - start);
        if (!current.empty() && length + 1 + lengthOf(word) > width) {
            lines.push_back(std::exchange(current, word));
            length = lengthOf(word);
        } else {
            current += (start == 0 ? "" : " ") + word;
            length += (start == 0 ? 0 : 1) + lengthOf(word);
        }
        start = end + 1;
    }
    lines.push_back(current);
    return lines;
}

bool outputIsTerminal() {
    return ::isatty(STDOUT_FILENO) == 1;
}

bool outputIsColoured() {
    const auto value = [](const char* name) {
        const char* found = std::getenv(name);
        return std::string_view(found == nullptr ? "" : found);
    };
    return outputIsTerminal() && value("NO_COLOR").empty() && value("TERM") != "dumb";
}

std::string styled(const std::string& text, Style style) {
    if (text.empty() || style == Style::Plain || !outputIsColoured()) return text;
    return fmt::format("\x1B[{}m{}\x1B[0m", kCodes[static_cast<std::size_t>(style)], text);
}

std::size_t outputWidth() {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kDefaultWidth;
    return size.ws_col;
}

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {
    std::vector<std::string> titles;
    for (const Column& column : columns_)
        titles.emplace_back(column.title);
    rows_.push_back(std::move(titles));
}

void Table::add(std::vector<std::string> row) {
    rows_.push_back(std::move(row));
}

std::vector<std::size_t> Table::widths() const {
    std::vector<std::size_t> widths(columns_.size());
    for (const auto& row : rows_) {
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], lengthOf(row[i]));
    }
    return widths;
}

void Table::append(std::string& out, const std::vector<std::string>& row,
                   const std::vector<std::size_t>& widths) const {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
        const std::string padding(widths[i] - lengthOf(row[i]), ' ');
        line += columns_[i].align == Align::Right ? padding + row[i] : row[i] + padding;
        line += "  ";
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out += line + "\n";
}

std::string Table::text() const {
    const std::vector<std::size_t> columnWidths = widths();
    std::string out;
    for (const auto& row : rows_)
        append(out, row, columnWidths);
    return out;
}

}  // namespace qzapp
