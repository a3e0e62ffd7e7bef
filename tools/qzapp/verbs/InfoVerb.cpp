#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <appserialization/AppMetadata.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <appserialization/ustring.hpp>
#include <fl/i18n.hpp>
#include <foundation/Threads.hpp>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "app/Error.hpp"
#include "app/FieldValues.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/MetadataJson.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/ForEachApp.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Program.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/TerminalText.hpp"
#include "tools/qzapp/verbs/InfoTable.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

using appserialization::AppMetadata;
using appserialization::Screenshot;
using appserialization::ScreenshotSize;

constexpr std::size_t kLabelWidth = 33;  // the longest field name, indented, and two blanks
constexpr std::size_t kIndent = 2;
// On a narrower terminal values stand below their labels.
constexpr std::size_t kMinWidth = 60;
constexpr std::size_t kIndentBelow = 4;
constexpr std::size_t kPictureRows = 20;

struct InfoOptions {
    std::vector<std::string> files;
    bool json = false;
    bool picture = false;
    std::optional<std::string> field;
    TableOptions table;
};

bool isPresent(const ScreenshotSize& screenshot) {
    return !screenshot.format.empty() || screenshot.bytes != 0;
}

nlohmann::ordered_json screenshotJson(const ScreenshotSize& screenshot) {
    if (!isPresent(screenshot)) return nullptr;
    return {{"format", fl::i18n::ustring_to_utf8(screenshot.format)}, {"bytes", screenshot.bytes}};
}

// A value as lines for the sheet.
std::vector<std::string> linesOf(const FieldValue& value, std::size_t width) {
    if (const auto* text = std::get_if<ustring>(&value)) {
        return text->empty() ? std::vector<std::string>{"(empty)"} : visibleLines(*text, width);
    }
    std::vector<std::string> lines;
    for (const ustring& item : std::get<List>(value)) {
        lines.push_back(item.empty() ? "(empty)" : visible(item));
    }
    return lines.empty() ? std::vector<std::string>{"(none)"} : lines;
}

// A label and below it its lines.
std::string stackedEntry(std::string_view label, const std::vector<std::string>& lines) {
    std::string text = std::string(kIndent, ' ') + styled(std::string(label), Style::Label) + "\n";
    for (const std::string& line : lines)
        text += (line.empty() ? "" : std::string(kIndentBelow, ' ') + line) + "\n";
    return text;
}

// A label and, in a column to its right, its lines.
std::string entry(std::string_view label, const std::vector<std::string>& lines) {
    if (outputWidth() < kMinWidth) return stackedEntry(label, lines);
    std::string text;
    for (const std::string& line : lines) {
        const std::string name = styled(std::string(label), Style::Label);
        const std::string gap(line.empty() ? 0 : kLabelWidth - kIndent - label.size(), ' ');
        std::string row = std::string(kIndent, ' ') + name + gap + line;
        row.erase(row.find_last_not_of(' ') + 1);
        text += row + "\n";
        label = "";
    }
    return text;
}

std::string sheetFor(const FileName& file, const AppMetadata& record,
                     const ScreenshotSize& screenshot) {
    const std::size_t width = outputWidth(outputWidth() < kMinWidth ? kIndentBelow : kLabelWidth);
    std::string text = styled(visible(file.shown), Style::Heading) +
                       fmt::format(" ({} app)\n", nameOf(formOf(file)));
    for (const Field field : allFields()) {
        text += entry(nameOf(field), linesOf(valueOf(record, field), width));
    }
    return text + entry("Screenshot", {screenshotText(screenshot)});
}

std::string jsonFor(const FileName& file, const AppMetadata& record,
                    const ScreenshotSize& screenshot) {
    return jsonLine({{"file", file.shown},
                     {"form", nameOf(formOf(file))},
                     {"metadata", toJson(record)},
                     {"screenshot", screenshotJson(screenshot)}});
}

// The value itself for scripts; made visible() for a terminal.
std::string plain(const ustring& value) {
    return outputIsTerminal()
               ? fmt::format("{}", fmt::join(visibleLines(value, ustring::npos), "\n"))
               : fl::i18n::ustring_to_utf8(value);
}

std::string fieldText(const AppMetadata& record, Field field) {
    const FieldValue value = valueOf(record, field);
    if (const auto* text = std::get_if<ustring>(&value)) return plain(*text) + "\n";
    std::string lines;
    for (const ustring& item : std::get<List>(value))
        lines += plain(item) + "\n";
    return lines;
}

// Draws screenshots with the first of the drawing programs that is installed.
class Drawer {
public:
    Drawer() : program_(commands(image_.name())) {}

    std::string draw(const FileName& file, const Screenshot& screenshot) {
        if (screenshot.second.empty()) return "";
        image_.fill(
            {reinterpret_cast<const char*>(screenshot.second.data()), screenshot.second.size()});
        const auto end = program_.run();
        if (!end) {
            throw Error("--picture",
                        "needs chafa or img2sixel to draw; install the package chafa, or get the "
                        "picture with \"qzapp extract --only screenshot\"");
        }
        if (end->status == 0) return end->output;
        throw Error(file.shown, "its screenshot cannot be drawn: " + end->failure() +
                                    "; see what it is with \"qzapp extract\"");
    }

private:
    static std::vector<std::vector<std::string>> commands(const std::string& image) {
        const std::string size = fmt::format("--size={}x{}", outputWidth(), kPictureRows);
        const char* colours = outputIsColoured() ? "--colors=full" : "--colors=none";
        return {{"chafa", "--animate=off", size, colours, image}, {"img2sixel", "--static", image}};
    }

    MemoryFile image_;
    Program program_;
};

// What is wanted about each app.
struct Wanted {
    std::optional<Field> field;
    std::optional<Drawer> drawer;
    std::optional<InfoTable> table;
    bool json = false;
};

std::string describe(const FileName& file, Wanted& wanted) {
    const auto reader = openApp(file);
    return about(file, [&] {
        const AppMetadata record = reader->readMetadata();
        if (wanted.field) {
            requireUnchanged(file);
            return fieldText(record, *wanted.field);
        }
        auto& drawer = wanted.drawer;
        const Screenshot screenshot = drawer ? readScreenshot(file, *reader) : Screenshot();
        const ScreenshotSize size = drawer
                                        ? ScreenshotSize{screenshot.first, screenshot.second.size()}
                                        : readScreenshotSize(file, *reader);
        requireUnchanged(file);
        if (wanted.json) return jsonFor(file, record, size);
        if (wanted.table)
            return wanted.table->rowOf({file.shown, nameOf(formOf(file)), record, size});
        const std::string sheet = sheetFor(file, record, size);
        return drawer ? sheet + drawer->draw(file, screenshot) : sheet;
    });
}

void requireSense(const InfoOptions& options) {
    if (options.table.isWanted() && (options.field || options.json || options.picture)) {
        throw UsageError(options.table.usual ? "--table" : "--columns",
                         "cannot be given with --json, --field or --picture; leave one out");
    }
    if (options.field && options.json)
        throw UsageError("--field", "cannot be given with --json; leave one out");
    if (options.picture && (options.field || options.json)) {
        throw UsageError("--picture", "cannot be given with --json or --field; leave one out");
    }
    if (options.picture && !outputIsTerminal()) {
        throw UsageError("--picture",
                         "only draws on a terminal; leave it out, or use \"qzapp "
                         "extract --only screenshot\"");
    }
}

int info(const InfoOptions& options) {
    requireSense(options);
    Wanted wanted;
    wanted.json = options.json;
    if (options.field) wanted.field = fieldArgument("--field", *options.field);
    if (options.table.isWanted()) wanted.table.emplace(options.table.columns);
    if (options.picture) {
        wanted.drawer.emplace();
        // It draws one picture at a time, whatever --threads says.
        foundation::threads::setLimit(1);
    }
    AppVisitor visitor;
    visitor.ask = [&](const FileName& file) { return Answer{describe(file, wanted)}; };
    if (wanted.table) visitor.show = [&](const Answer& answer) { wanted.table->show(answer); };
    if (options.json) {
        visitor.fail = [](const std::string& file, const std::string& reason) {
            print(jsonLine(failureJson(file, reason)));
        };
    }
    const int status = forEachApp(options.files, visitor);
    if (wanted.table) wanted.table->end();
    return status;
}

}  // namespace

Action declareInfo(CLI::App& command) {
    const auto options = std::make_shared<InfoOptions>();
    command
        .add_option("FILE", options->files,
                    "Packaged (.kvpkg) or text (.k) apps, folders of them, or \"-\"")
        ->required()
        ->type_name("");
    command.add_flag("--json", options->json, "Print one JSON object per file, each on one line");
    command.add_option("--field", options->field, "Print this field's value and nothing else")
        ->type_name("NAME");
    declareTable(command, options->table);
    command.add_flag("--picture", options->picture,
                     "Draw the screenshot on the terminal, with chafa or img2sixel");
    command.footer(
        "A file that cannot be read is reported and does not stop the others; the exit status is\n"
        "then 1. On a terminal the output is coloured, unless NO_COLOR is set, and a table is\n"
        "fitted to its width. Otherwise a table has no header, and tabs between its columns; "
        "tabs,\n"
        "line ends and backslashes in values are \\t, \\n, \\r and \\\\.\n" +
        fieldHelp() +
        "\n\n"
        "Examples:\n"
        "  qzapp info atlas.kvpkg atlas.k\n"
        "  qzapp info --columns Author,Name,Version apps | sort\n"
        "  qzapp info --json apps | jq -r .metadata.Name\n"
        "  version=$(qzapp info --field Version atlas.kvpkg)");
    return [options] { return info(*options); };
}

}  // namespace qzapp
