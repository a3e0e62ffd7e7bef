#include "tools/qzapp/cli/ContentOptions.hpp"

#include <fmt/format.h>
#include <CLI/Option.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <appserialization/ustring.hpp>
#include <foundation/ustring.hpp>

#include <cstddef>
#include <utility>
#include <variant>

#include "app/DoubtfulValues.hpp"
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

// "Field=Value"; the value may hold further "=".
std::pair<Field, ustring> parseAssignment(const std::string& argument) {
    const std::size_t equals = argument.find('=');
    if (equals == std::string::npos) {
        throw UsageError("--set", fmt::format("expected Field=Value, found \"{}\"", argument));
    }
    return {fieldArgument("--set", argument.substr(0, equals)),
            textArgument("--set", argument.substr(equals + 1))};
}

// A list field collects the values of all its assignments. A text field may be assigned once.
FieldValues parseAssignments(const std::vector<std::string>& arguments) {
    FieldValues values;
    for (const std::string& argument : arguments) {
        auto [field, value] = parseAssignment(argument);
        if (isList(field)) {
            FieldValue& list = values.try_emplace(field, List()).first->second;
            std::get<List>(list).push_back(std::move(value));
        } else if (!values.emplace(field, std::move(value)).second) {
            throw UsageError(
                "--set",
                fmt::format("{} is given twice but is not a list; give one value", nameOf(field)));
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

// --set and --clear take precedence over the metadata file.
FieldValues loadFields(const ContentOptions& options, std::vector<FileName>& sources) {
    FieldValues values = parseAssignments(options.set);
    clearFields(values, options.clear);
    if (options.metadata) {
        sources.push_back(inputArgument(*options.metadata));
        values.merge(readMetadataJson(sources.back()));
    }
    return values;
}

appserialization::Screenshot loadScreenshot(const FileName& file) {
    const ustring format = screenshotFormatOf(file);
    const std::string bytes = readBytes(file, kMaxContentBytes);
    return {format, {bytes.begin(), bytes.end()}};
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
        .add_option(
            "--screenshot", options.screenshot,
            fmt::format("Image; its extension ({}) gives the format", packagedFormats("", ", ")))
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

Content loadContent(const ContentOptions& options) {
    requireOneStandardInput({options.code, options.model, options.metadata});
    Content content;
    content.fields = loadFields(options, content.sources);
    const auto source = [&](FileName file) {
        return content.sources.emplace_back(std::move(file));
    };
    if (options.model) content.model = source(inputArgument(*options.model));
    if (options.code)
        content.code = readText(source(inputArgument(*options.code)), kMaxContentBytes);
    if (options.screenshot)
        content.screenshot = loadScreenshot(source(hold(fileArgument(*options.screenshot))));
    warnOfDoubts(content);
    return content;
}

}  // namespace qzapp
