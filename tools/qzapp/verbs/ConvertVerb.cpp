#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <appserialization/AppMetadata.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <appserialization/ustring.hpp>
#include <fl/i18n.hpp>
#include <foundation/ReleaseInfo.hpp>
#include <foundation/ustring.hpp>
#include <opc/XercesHelper.hpp>

#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "app/DoubtfulValues.hpp"
#include "app/Error.hpp"
#include "app/FieldValues.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/Packaging.hpp"
#include "app/ScreenshotFormats.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/NewPackage.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

struct ConvertOptions {
    std::string in;
    std::string out;
    std::string model;
    bool force = false;
};

// The content of the packaged app, and notes on what of the text app it cannot hold.
struct Conversion {
    Content content;
    std::vector<std::string> losses;
};

// The writer would check this too, but its error would be about the package and not the text app.
void requireXmlText(Field field, const FieldValue& value) {
    const ustring name = fl::i18n::utf8_to_ustring(nameOf(field));
    const auto check = [&](const ustring& text) { opc::model::requireXmlText(text, name); };
    if (const auto* text = std::get_if<ustring>(&value)) return check(*text);
    for (const ustring& item : std::get<List>(value))
        check(item);
}

void takeMetadata(Conversion& conversion, const appserialization::AppMetadata& record) {
    FieldValues& fields = conversion.content.fields;
    for (const Field field : allFields()) {
        requireXmlText(field, fields[field] = valueOf(record, field));
    }
    // A text app has no package version; what was read is empty.
    fields.erase(Field::KVPKGVersion);
    const ustring written = std::get<ustring>(fields.at(Field::KORVALRelease));
    // An empty release would be kept as legacy information.
    if (written.empty()) fields.erase(Field::KORVALRelease);
    const ustring current = foundation::release_info::ReleaseInfo::current().release;
    if (written.empty() || written == current) return;
    conversion.losses.push_back(fmt::format(
        "KORVALRelease \"{}\" is kept as legacy information; the new app reads as written by {}",
        visible(written), visible(current)));
}

void takeScreenshot(Conversion& conversion, appserialization::Screenshot screenshot) {
    if (screenshot.first.empty() && screenshot.second.empty()) return;
    if (isPackagedFormat(screenshot.first)) {
        conversion.content.screenshot = std::move(screenshot);
        return;
    }
    conversion.losses.push_back(
        fmt::format("the screenshot is left out: its format is \"{}\", and a packaged app holds {}",
                    visible(screenshot.first), packagedFormats()));
}

Conversion convertText(const FileName& in) {
    const auto reader = openApp(in);
    Conversion conversion;
    conversion.content.code = readText(in, kMaxContentBytes);
    about(in, [&] { takeMetadata(conversion, reader->readMetadata()); });
    takeScreenshot(conversion, readScreenshot(in, *reader));
    requireUnchanged(in);
    warnOfDoubts(conversion.content);
    return conversion;
}

int convert(const ConvertOptions& options) {
    const NewPackage out(options.out, NewPackage::Kind::App);
    requireOneStandardInput({options.in, options.model});
    const FileName in = appArgument(options.in);
    requireForm(in, Form::Text);
    Conversion conversion = convertText(in);
    conversion.content.model = contentArgument(options.model);
    out.requireFree(options.force, {in, *conversion.content.model});
    std::string notes;
    for (const std::string& loss : conversion.losses)
        notes += "note: " + loss + "\n";
    const std::string report = fmt::format("wrote {}\n{}", visible(out.shown()), notes);
    out.make([&](const FileName& file) { createPackage(file, conversion.content, options.force); });
    out.deliver(report, notes);
    return kDone;
}

}  // namespace

Action declareConvert(CLI::App& command) {
    const auto options = std::make_shared<ConvertOptions>();
    command.add_option("IN.k", options->in, "The text app, or \"-\"")->required()->type_name("");
    command
        .add_option("OUT.kvpkg", options->out,
                    "The packaged app to make, or \"-\", standard output")
        ->required()
        ->type_name("");
    command
        .add_option("--model", options->model,
                    "Binary app model, which a text app does not have: a file, a pipe "
                    "or \"-\"")
        ->required()
        ->type_name("FILE");
    command.add_flag("--force", options->force, "Replace OUT.kvpkg if it exists");
    command.footer(
        "The code of the packaged app is the whole source as it stands. Whatever a packaged app\n"
        "cannot hold is reported. One of IN.k and model may be \"-\", standard input.\n\n"
        "Example:\n"
        "  qzapp convert atlas.k atlas.kvpkg --model atlas.kvd");
    return [options] { return convert(*options); };
}

}  // namespace qzapp
