#include "tools/qzapp/cli/ContentOptions.hpp"

#include <fmt/format.h>
#include <CLI/Option.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <appserialization/ustring.hpp>
#include <fl/i18n.hpp>
#include <foundation/ustring.hpp>
#include <opc/Limits.hpp>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <set>
#include <utility>
#include <variant>

#include "app/DoubtfulValues.hpp"
#include "app/Error.hpp"
#include "app/FieldValues.hpp"
#include "app/FileName.hpp"
#include "app/InputFiles.hpp"
#include "app/MetadataJson.hpp"
#include "app/ScreenshotFormats.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"

namespace qzapp {
namespace {

using Sources = std::vector<FileName>;

// An option that gives "Field=Value".
struct Assignment {
    std::string option;
    Field field;
    std::string value;  // may hold further "="
};

Assignment parseAssignment(const std::string& option, const std::string& argument) {
    const std::size_t equals = argument.find('=');
    if (equals == std::string::npos) {
        throw UsageError(option, fmt::format("expected Field=Value, found \"{}\"", argument));
    }
    return {option, fieldArgument(option, argument.substr(0, equals)), argument.substr(equals + 1)};
}

std::vector<Assignment> parseAssignments(const std::string& option,
                                         const std::vector<std::string>& arguments) {
    std::vector<Assignment> assignments;
    for (const std::string& argument : arguments)
        assignments.push_back(parseAssignment(option, argument));
    return assignments;
}

// The file that "@FILE" names. Nothing for any other value, and for "@@TEXT".
std::optional<std::string> fileOf(const Assignment& assignment) {
    const std::string& value = assignment.value;
    if (!value.starts_with('@') || value.starts_with("@@")) return std::nullopt;
    if (value.size() > 1) return value.substr(1);
    throw UsageError(assignment.option,
                     "expected the name of a file behind \"@\"; \"@@\" is the text \"@\"");
}

ustring readValueFile(const Assignment& assignment, const std::string& name, Sources& sources) {
    try {
        sources.push_back(contentArgument(name));
    } catch (const UsageError&) {
        throw;
    } catch (const Error& e) {
        if (name == kStandardStream) throw;
        throw Error(name, fmt::format("{} (for the text \"{}\" write \"@{}\")", e.text(),
                                      assignment.value, assignment.value));
    }
    return readText(sources.back(), kMaxXmlBytes);
}

ustring typedValue(const Assignment& assignment) {
    const std::string& value = assignment.value;
    return textArgument(assignment.option, value.starts_with("@@") ? value.substr(1) : value);
}

ustring textOf(const Assignment& assignment, Sources& sources) {
    const auto file = fileOf(assignment);
    if (!file) return typedValue(assignment);
    ustring text = readValueFile(assignment, *file, sources);
    if (text.ends_with(u'\n')) text.erase(text.size() - (text.ends_with(u"\r\n") ? 2 : 1));
    return text;
}

// The lines of a file that are not empty, or the one item that was typed.
List itemsOf(const Assignment& assignment, Sources& sources) {
    const auto file = fileOf(assignment);
    if (!file) return {typedValue(assignment)};
    const ustring text = readValueFile(assignment, *file, sources);
    List items;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find(u'\n', start), text.size());
        ustring line = text.substr(start, end - start);
        if (line.ends_with(u'\r')) line.pop_back();
        if (!line.empty()) items.push_back(std::move(line));
        start = end + 1;
    }
    return items;
}

// A list field collects the values of all its assignments. A text field may be assigned once.
FieldValues setFields(const std::vector<std::string>& arguments, Sources& sources) {
    FieldValues values;
    for (const Assignment& assignment : parseAssignments("--set", arguments)) {
        const Field field = assignment.field;
        if (isList(field)) {
            FieldValue& list = values.try_emplace(field, List()).first->second;
            std::ranges::move(itemsOf(assignment, sources),
                              std::back_inserter(std::get<List>(list)));
        } else if (values.contains(field)) {
            throw UsageError(
                "--set",
                fmt::format("{} is given twice but is not a list; give one value", nameOf(field)));
        } else {
            values.emplace(field, textOf(assignment, sources));
        }
    }
    return values;
}

void clearFields(FieldValues& values, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        const Field field = fieldArgument("--clear", name);
        if (values.contains(field)) {
            throw UsageError("--clear",
                             fmt::format("{} is set as well; leave one out", nameOf(field)));
        }
        values[field] = isList(field) ? FieldValue(List()) : FieldValue(ustring());
    }
}

// Puts the items that the arguments of --add or --remove give into `member` of their lists' edits.
// `replaced` are the fields that --set and --clear give.
void editLists(ListEdits& edits, List ListEdit::*member, const std::string& option,
               const std::vector<std::string>& arguments, const FieldValues& replaced,
               Sources& sources) {
    for (const Assignment& assignment : parseAssignments(option, arguments)) {
        const char* const name = nameOf(assignment.field);
        if (!isList(assignment.field)) {
            throw UsageError(option, fmt::format("{} is a text, not a list; give --set {}=VALUE, "
                                                 "which replaces it",
                                                 name, name));
        }
        if (replaced.contains(assignment.field)) {
            throw UsageError(option, fmt::format("{} is set or cleared as well, which replaces the "
                                                 "whole list; leave one out",
                                                 name));
        }
        List& items = edits[assignment.field].*member;
        for (ustring& item : itemsOf(assignment, sources)) {
            if (std::ranges::find(items, item) == items.end()) items.push_back(std::move(item));
        }
    }
}

ListEdits loadListEdits(const ContentOptions& options, const FieldValues& replaced,
                        Sources& sources) {
    ListEdits edits;
    editLists(edits, &ListEdit::added, "--add", options.add, replaced, sources);
    editLists(edits, &ListEdit::removed, "--remove", options.remove, replaced, sources);
    for (const auto& [field, edit] : edits) {
        for (const ustring& item : edit.removed) {
            if (std::ranges::find(edit.added, item) == edit.added.end()) continue;
            throw UsageError("--remove", fmt::format("\"{}\" is added to {} as well; leave one out",
                                                     fl::i18n::to_display(item), nameOf(field)));
        }
    }
    return edits;
}

// --set and --clear take precedence over the metadata file.
void loadFields(const ContentOptions& options, Content& content) {
    content.fields = setFields(options.set, content.sources);
    clearFields(content.fields, options.clear);
    for (const auto& [field, value] : content.fields)
        content.named.insert(field);
    content.listEdits = loadListEdits(options, content.fields, content.sources);
    if (options.metadata) {
        content.sources.push_back(contentArgument(*options.metadata));
        content.fields.merge(readMetadataJson(content.sources.back()));
    }
}

// All that may be "-".
std::vector<std::optional<std::string>> inputsOf(const ContentOptions& options) {
    std::vector<std::optional<std::string>> inputs = {options.code, options.model, options.metadata,
                                                      options.screenshot};
    const std::pair<const char*, const std::vector<std::string>&> assigning[] = {
        {"--set", options.set}, {"--add", options.add}, {"--remove", options.remove}};
    for (const auto& [option, arguments] : assigning) {
        for (const Assignment& assignment : parseAssignments(option, arguments))
            inputs.push_back(fileOf(assignment));
    }
    return inputs;
}

}  // namespace

void addContentOptions(CLI::App& command, ContentOptions& options, bool required) {
    command.add_option("--code", options.code, "Source code, a text file in UTF-8")
        ->required(required)
        ->type_name("FILE")
        ->group("Content");
    command.add_option("--model", options.model, "Binary app model")
        ->required(required)
        ->type_name("FILE")
        ->group("Content");
    command
        .add_option("--screenshot", options.screenshot,
                    fmt::format("Image; its extension ({}), or else its first bytes, "
                                "give the format",
                                packagedFormats("", ", ")))
        ->type_name("IMAGE")
        ->group("Content");
    command
        .add_option("--metadata", options.metadata,
                    "JSON object of metadata fields, as \"qzapp extract\" writes it")
        ->type_name("FILE.json")
        ->group("Metadata");
    // One value for each --set, so that the argument after it is never taken as another value.
    command
        .add_option("--set", options.set,
                    "Set one field, whatever --metadata says; repeat it for list items")
        ->type_name("FIELD=VALUE")
        ->group("Metadata")
        ->allow_extra_args(false);
}

void addListOptions(CLI::App& command, ContentOptions& options) {
    command
        .add_option("--add", options.add,
                    "Add an item to a list, unless it is there; may be repeated")
        ->type_name("FIELD=VALUE")
        ->group("Metadata")
        ->allow_extra_args(false);
    command.add_option("--remove", options.remove, "Remove an item from a list; may be repeated")
        ->type_name("FIELD=VALUE")
        ->group("Metadata")
        ->allow_extra_args(false);
}

Content loadContent(const ContentOptions& options) {
    requireOneStandardInput(inputsOf(options));
    Content content;
    loadFields(options, content);
    const auto source = [&](const std::string& value) {
        return content.sources.emplace_back(contentArgument(value));
    };
    if (options.model) content.model = source(*options.model);
    if (options.code) content.code = readText(source(*options.code), kMaxContentBytes);
    if (options.screenshot) content.screenshot = readImage(source(*options.screenshot));
    warnOfDoubts(content);
    return content;
}

}  // namespace qzapp
