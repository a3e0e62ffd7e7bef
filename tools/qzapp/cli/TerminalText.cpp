#include "tools/qzapp/cli/TerminalText.hpp"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <foundation/Shown.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <numeric>
#include <string_view>
#include <utility>

#include "app/VisibleText.hpp"

namespace qzapp {
namespace {

using foundation::displayWidth;
using foundation::ustring_view;

constexpr std::size_t kUsualWidth = 80;  // of a terminal that does not tell its width
constexpr std::size_t kColumnGap = 2;
constexpr std::size_t kIndentBelow = 4;

// The terminal's codes in the order of Style: none, faint, bold, green, red, cyan; bold red,
// yellow, cyan.
constexpr std::array<const char*, 9> kCodes = {"", "2", "1", "32", "31", "36", "1;31", "33", "36"};

std::size_t longestWord(const std::string& text) {
    std::size_t longest = 0;
    for (const std::string& word : wrapped(text, 0))
        longest = std::max(longest, displayWidth(word));
    return longest;
}

// The beginning of a text that is wider than `width`, with a mark that the rest is missing.
std::string cut(const std::string& text, std::size_t width) {
    if (displayWidth(text) <= width) return text;
    std::size_t end = 0, used = 1;  // a column for the mark
    while (end < text.size()) {
        std::size_t next = end + 1;
        while (next < text.size() && (static_cast<unsigned char>(text[next]) & 0xC0) == 0x80)
            ++next;
        used += displayWidth(std::string_view(text).substr(end, next - end));
        if (used > width) break;
        end = next;
    }
    return text.substr(0, end) + "…";
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
        if (!current.empty() && length + 1 + displayWidth(word) > width) {
            lines.push_back(std::exchange(current, word));
            length = displayWidth(word);
        } else {
            current += (start == 0 ? "" : " ") + word;
            length += (start == 0 ? 0 : 1) + displayWidth(word);
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

std::size_t terminalWidth(int descriptor) {
    winsize size{};
    const bool tells = ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return tells ? size.ws_col : kUsualWidth;
}

std::size_t outputWidth(std::size_t indent) {
    if (!outputIsTerminal()) return kUnlimitedWidth;
    const std::size_t width = terminalWidth(STDOUT_FILENO);
    return width - std::min(indent, width);
}

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {
    Row titles;
    for (const Column& column : columns_)
        titles.push_back(column.title);
    rows_.push_back(std::move(titles));
}

void Table::add(Row row) {
    rows_.push_back(std::move(row));
}

std::vector<std::size_t> Table::widths() const {
    std::vector<std::size_t> widths(columns_.size());
    for (const Row& row : rows_) {
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], displayWidth(row[i]));
    }
    return widths;
}

// Gives all columns whose values may be cut at most the same width.
void Table::shrink(std::vector<std::size_t>& widths) const {
    const auto mayBeCut = [&](std::size_t i) { return columns_[i].ifNarrow == IfNarrow::IsCut; };
    const auto total = [&] {
        return std::accumulate(widths.begin(), widths.end(), kColumnGap * (widths.size() - 1));
    };
    const std::size_t room = outputWidth();
    for (std::size_t most = room; most > 0 && total() > room; --most) {
        for (std::size_t i = 0; i < widths.size(); ++i) {
            if (mayBeCut(i)) widths[i] = std::min(widths[i], most);
        }
    }
}

Table::Fit Table::fitOf(const std::vector<std::size_t>& widths) const {
    const std::size_t before =
        std::accumulate(widths.begin(), widths.end() - 1, kColumnGap * (widths.size() - 1));
    if (before + widths.back() <= outputWidth()) return Fit::AsIs;
    if (columns_.back().ifNarrow == IfNarrow::Stays) return Fit::Below;
    const bool hasRoom = std::ranges::all_of(
        rows_, [&](const Row& row) { return longestWord(row.back()) <= outputWidth(before); });
    return hasRoom ? Fit::LastWrapped : Fit::Below;
}

void Table::append(std::string& out, const Row& row, const std::vector<std::size_t>& widths,
                   Fit fit) const {
    std::string line, below;
    for (std::size_t i = 0; i < row.size(); ++i) {
        if (fit == Fit::Below && columns_[i].ifNarrow == IfNarrow::GoesBelow) {
            for (const std::string& part : wrapped(row[i], outputWidth(kIndentBelow)))
                below += std::string(kIndentBelow, ' ') + part + "\n";
        } else if (fit == Fit::LastWrapped && i + 1 == row.size()) {
            const std::size_t column = displayWidth(line);
            const std::vector<std::string> parts = wrapped(row[i], outputWidth(column));
            line += parts.front();
            for (std::size_t part = 1; part < parts.size(); ++part)
                below += std::string(column, ' ') + parts[part] + "\n";
        } else {
            const std::string value = cut(row[i], widths[i]);
            const std::string padding(widths[i] - displayWidth(value), ' ');
            line += columns_[i].align == Align::Right ? padding + value : value + padding;
            line += std::string(kColumnGap, ' ');
        }
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out += line + "\n" + below;
}

std::string Table::text() const {
    std::vector<std::size_t> columnWidths = widths();
    shrink(columnWidths);
    const Fit fit = fitOf(columnWidths);
    std::string out;
    for (const Row& row : rows_)
        append(out, row, columnWidths, fit);
    return out;
}

}  // namespace qzapp
