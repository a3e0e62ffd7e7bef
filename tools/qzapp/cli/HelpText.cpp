#include "tools/qzapp/cli/HelpText.hpp"

#include <CLI/Option.hpp>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include "tools/qzapp/cli/TerminalText.hpp"

namespace qzapp {
namespace {

constexpr std::size_t kNameIndent = 2;
constexpr std::size_t kTextColumn = 28;
// On a narrower terminal the text stands below its name.
constexpr std::size_t kMinWidth = 60;
constexpr std::size_t kTextIndentBelow = 6;
// Longer lines are hard to read, however wide the terminal is.
constexpr std::size_t kMaxWidth = 100;

std::size_t width(std::size_t indent = 0) {
    return outputIsTerminal() ? std::min(outputWidth(indent), kMaxWidth - indent) : kUnlimitedWidth;
}

std::string indented(const std::string& text, std::size_t indent) {
    std::string lines;
    for (const std::string& line : wrapped(text, width(indent)))
        lines += std::string(indent, ' ') + line + "\n";
    return lines;
}

// "  --name VALUE             What it does, in a column of its own"
std::string entry(const std::string& name, const std::string& text) {
    const std::string start = std::string(kNameIndent, ' ') + name;
    if (width() < kMinWidth) return start + "\n" + indented(text, kTextIndentBelow);
    std::string lines = indented(text, kTextColumn);
    if (start.size() + 1 >= kTextColumn) return start + "\n" + lines;
    return start + lines.substr(start.size());
}

// CLI11 puts two blank lines between groups.
std::string withoutDoubleGaps(std::string help) {
    for (std::size_t at = 0; (at = help.find("\n\n\n", at)) != std::string::npos;)
        help.erase(at, 1);
    return help;
}

bool isSentence(std::string_view line) {
    return !line.empty() && !line.starts_with(' ');
}

// "  NAME  What it is" as an entry; any other line that is not of a sentence as it is.
std::string entryOrLine(std::string_view line) {
    const std::size_t start = line.find_first_not_of(' ');
    const std::size_t gap = line.find("  ", start);
    const std::size_t text = line.find_first_not_of(' ', gap);
    if (start != kNameIndent || text == std::string_view::npos) return std::string(line) + "\n";
    return entry(std::string(line.substr(start, gap - start)), std::string(line.substr(text)));
}

std::string reflowed(std::string_view text) {
    std::string result, paragraph;
    const auto endParagraph = [&] {
        if (!paragraph.empty()) result += indented(std::exchange(paragraph, ""), 0);
    };
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (isSentence(line)) {
            paragraph += (paragraph.empty() ? "" : " ") + std::string(line);
            if (line.ends_with(':')) endParagraph();
        } else {
            endParagraph();
            result += entryOrLine(line);
        }
    }
    endParagraph();
    return result;
}

}  // namespace

HelpText::HelpText() {
    label("REQUIRED", "(required)");
    label("Positionals", "Arguments");
    label("SUBCOMMAND", "VERB");
}

std::string HelpText::make_help(const CLI::App* app, std::string name,
                                CLI::AppFormatMode mode) const {
    return withoutDoubleGaps(Formatter::make_help(app, std::move(name), mode));
}

// CLI11 names only arguments.
std::string HelpText::make_usage(const CLI::App* app, std::string name) const {
    std::string usage = Formatter::make_usage(app, std::move(name));
    const auto required = app->get_options([](const CLI::Option* option) {
        return option->nonpositional() && option->get_required();
    });
    for (const CLI::Option* option : required) {
        const bool isShort = !option->get_snames().empty();
        const std::string shown = isShort ? "-" + option->get_snames()[0] : option->get_name();
        usage.insert(usage.find_last_not_of('\n') + 1, " " + shown + " " + option->get_type_name());
    }
    return usage;
}

std::string HelpText::make_description(const CLI::App* app) const {
    return indented(app->get_description(), 0);
}

std::string HelpText::make_footer(const CLI::App* app) const {
    return reflowed(app->get_footer());
}

std::string HelpText::make_subcommand(const CLI::App* verb) const {
    return entry(verb->get_name(), verb->get_description());
}

std::string HelpText::make_option(const CLI::Option* option, bool isPositional) const {
    return entry(make_option_name(option, isPositional) + make_option_opts(option),
                 make_option_desc(option));
}

}  // namespace qzapp
