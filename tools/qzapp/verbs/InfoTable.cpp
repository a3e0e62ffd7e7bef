#include "tools/qzapp/verbs/InfoTable.hpp"

#include <fmt/format.h>
#include <CLI/Option.hpp>
#include <appserialization/ustring.hpp>
#include <fl/i18n.hpp>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>
#include <variant>

#include "app/Suggestion.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/TerminalText.hpp"

namespace qzapp {
namespace {

using appserialization::ScreenshotSize;

constexpr const char* kUsualColumns = "File,Name,Version,Author";
constexpr const char* kFile = "File";
constexpr const char* kForm = "Form";
constexpr const char* kScreenshot = "Screenshot";

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> pieces;
    for (std::size_t end = 0; end != std::string_view::npos; text.remove_prefix(end + 1)) {
        end = text.find(separator);
        pieces.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) break;
    }
    return pieces;
}

ustring joined(const List& list) {
    ustring text;
    for (const ustring& item : list)
        text += (text.empty() ? u"" : u", ") + item;
    return text;
}

// With the escapes that programs expect in such lines: \t, \n, \r and \\, for what else ends a line
// or acts on a terminal \uXXXX.
std::string forPrograms(const ustring& value) {
    std::string escaped;
    for (const char c : fl::i18n::to_display(value)) {
        constexpr std::string_view kEscaped = "\t\n\r\\", kLetters = "tnr\\";
        const std::size_t at = kEscaped.find(c);
        escaped +=
            at == std::string_view::npos ? std::string(1, c) : std::string("\\") + kLetters[at];
    }
    return visible(escaped);
}

// White space, line ends included, becomes one blank.
std::string forPeople(const ustring& value) {
    std::string text;
    for (const char c : fl::i18n::to_display(value)) {
        const bool isSpace = std::string_view(" \t\r\n").find(c) != std::string_view::npos;
        if (!isSpace) {
            text += c;
        } else if (!text.empty() && text.back() != ' ') {
            text += ' ';
        }
    }
    return visible(text);
}

}  // namespace

void declareTable(CLI::App& command, TableOptions& options) {
    command.add_flag("--table", options.usual,
                     "Print one line per app, with the columns File, Name, Version and Author");
    command
        .add_option("--columns", options.columns,
                    "Print such a table with these columns: fields, File, Form, Screenshot")
        ->type_name("NAMES");
}

std::vector<InfoTable::Column> InfoTable::allColumns() {
    std::vector<Column> all = {{kFile, {}}, {kForm, {}}};
    for (const Field field : allFields())
        all.push_back({nameOf(field), field});
    all.push_back({kScreenshot, {}});
    return all;
}

InfoTable::InfoTable(const std::optional<std::string>& names) {
    const std::vector<Column> all = allColumns();
    for (const std::string& name : split(names.value_or(kUsualColumns), ',')) {
        const auto found = std::ranges::find_if(
            all, [&](const Column& column) { return isSameInAnyCase(name, column.title); });
        if (found != all.end()) {
            columns_.push_back(*found);
            continue;
        }
        std::vector<std::string_view> known;
        for (const Column& column : all)
            known.emplace_back(column.title);
        throw UsageError(
            "--columns",
            fmt::format("unknown column \"{}\"{}", name,
                        didYouMean(name, known,
                                   "; use a metadata field, File, Form or Screenshot, with "
                                   "commas between several")));
    }
}

ustring InfoTable::valueOf(const Column& column, const TableApp& app) {
    if (column.field) {
        const FieldValue value = qzapp::valueOf(app.record, *column.field);
        const auto* list = std::get_if<List>(&value);
        return list == nullptr ? std::get<ustring>(value) : joined(*list);
    }
    if (column.title == kFile) return fl::i18n::utf8_to_ustring(app.file);
    if (column.title == kForm) return fl::i18n::utf8_to_ustring(app.form);
    return fl::i18n::utf8_to_ustring(screenshotText(app.screenshot));
}

// On a terminal too, values are separated by tabs, which no value holds.
std::string InfoTable::rowOf(const TableApp& app) const {
    std::string row;
    for (const Column& column : columns_) {
        const ustring value = valueOf(column, app);
        row += (&column == columns_.data() ? "" : "\t") +
               (outputIsTerminal() ? forPeople(value) : forPrograms(value));
    }
    return row + "\n";
}

void InfoTable::show(const Answer& answer) {
    if (outputIsTerminal()) {
        rows_.push_back(answer.text.substr(0, answer.text.size() - 1));
    } else {
        print(answer.text);
    }
}

void InfoTable::end() const {
    if (rows_.empty()) return;
    std::vector<Table::Column> columns;
    for (const Column& column : columns_)
        columns.push_back({column.title, Table::Align::Left, Table::IfNarrow::IsCut});
    Table table(std::move(columns));
    for (const std::string& row : rows_)
        table.add(split(row, '\t'));
    print(table.text());
}

std::string screenshotText(const ScreenshotSize& screenshot) {
    if (screenshot.format.empty() && screenshot.bytes == 0) return "(none)";
    return fmt::format("{}, {}", visible(screenshot.format), byteCount(screenshot.bytes));
}

}  // namespace qzapp
