#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <appserialization/ustring.hpp>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "app/FieldValues.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "app/MetadataJson.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/cli/TerminalText.hpp"
#include "tools/qzapp/verbs/Snapshot.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

using nlohmann::ordered_json;

struct ShowOptions {
    std::string file;
    bool text = false;
    bool json = false;
};

// Each further line of a text gets a line of its own, which begins with a bar.
std::string shownText(const ustring& value) {
    std::string text;
    for (const std::string& line : visibleLines(value, ustring::npos))
        text += (text.empty() ? " " : "\n  | ") + line;
    return text == " " ? "" : text;
}

std::string fieldText(Field field, const FieldValue& value) {
    std::string text = fmt::format("{}:", nameOf(field));
    if (const auto* one = std::get_if<ustring>(&value)) return text + shownText(*one) + "\n";
    for (const ustring& item : std::get<List>(value))
        text += "\n  - " + visible(item);
    return text + "\n";
}

std::string metadataText(const FieldValues& values) {
    std::string text;
    for (const auto& [field, value] : values)
        text += fieldText(field, value);
    return text;
}

// So that an escape that stands in the text is not taken for what visible() escapes.
std::string withDoubledBackslashes(std::string text) {
    for (std::size_t at = 0; (at = text.find('\\', at)) != std::string::npos; at += 2)
        text.insert(at, 1, '\\');
    return text;
}

// Size and hash of a part whose bytes change with each save are left out: it is shown by its
// meaning.
std::string contentText(const PartFacts& part) {
    if (!part.error.empty()) {
        return fmt::format("{}  cannot be read: {}", byteCount(part.size), visible(part.error));
    }
    if (!part.meaning) return fmt::format("{}  sha256:{}", byteCount(part.size), part.sha256);
    std::string text = "says:";
    for (const std::string& line : *part.meaning)
        text += "\n  | " + visible(withDoubledBackslashes(line));
    return text;
}

std::string partsText(const std::vector<PartFacts>& parts) {
    std::string text;
    for (const PartFacts& part : parts) {
        text += fmt::format("{}  {}  {}\n", visible(part.name), visible(part.contentType),
                            contentText(part));
    }
    return text;
}

std::string faultText(const Snapshot& app, std::string_view what) {
    for (const Fault& fault : app.faults) {
        if (fault.what == what) return "cannot be read: " + visible(fault.text) + "\n";
    }
    return "";
}

// Does not contain the file's name: git passes a different temporary file each time.
std::string textOf(const Snapshot& app) {
    std::string text = fmt::format("form: {}\n\n", nameOf(app.form));
    if (const std::string fault = faultText(app, "app"); !fault.empty()) return text + fault;
    text += "[metadata]\n" + faultText(app, "metadata");
    if (app.metadata) text += metadataText(*app.metadata);
    text += "\n[screenshot]\n" + faultText(app, "screenshot");
    if (app.screenshot) {
        text += fmt::format("{}  {}  sha256:{}\n", visible(app.screenshot->format),
                            byteCount(app.screenshot->size), app.screenshot->sha256);
    }
    if (app.form == Form::Packaged) text += "\n[parts]\n" + faultText(app, "parts");
    if (app.parts) text += partsText(*app.parts);
    const bool crLf = app.code && endsLinesInCrLf(*app.code);
    text +=
        fmt::format("\n[code{}]\n{}", crLf ? ", lines end in CR LF" : "", faultText(app, "code"));
    return app.code ? text + codeLines(*app.code) : text;
}

ordered_json partJson(const PartFacts& part) {
    ordered_json object = {{"name", part.name},
                           {"contentType", part.contentType},
                           {"size", part.size},
                           {"sha256", part.error.empty() ? ordered_json(part.sha256) : nullptr}};
    if (!part.error.empty()) object["error"] = part.error;
    return object;
}

ordered_json jsonOf(const FileName& file, const Snapshot& app) {
    ordered_json object = {{"file", file.shown},
                           {"form", nameOf(app.form)},
                           {"metadata", nullptr},
                           {"screenshot", nullptr},
                           {"parts", nullptr},
                           {"code", nullptr},
                           {"errors", ordered_json::array()}};
    if (app.metadata) object["metadata"] = toJson(*app.metadata);
    if (app.screenshot) {
        object["screenshot"] = {{"format", app.screenshot->format},
                                {"bytes", app.screenshot->size},
                                {"sha256", app.screenshot->sha256}};
    }
    if (app.parts) {
        object["parts"] = ordered_json::array();
        for (const PartFacts& part : *app.parts)
            object["parts"].push_back(partJson(part));
    }
    if (app.code) object["code"] = *app.code;
    for (const Fault& fault : app.faults)
        object["errors"].push_back({{"what", fault.what}, {"error", fault.text}});
    return object;
}

int reportFaults(const FileName& file, const Snapshot& app) {
    int status = kDone;
    const auto fail = [&](const std::string& what, const std::string& text) {
        report(fmt::format("{}: {}: {}", file.shown, what, text));
        status = kFailed;
    };
    for (const Fault& fault : app.faults)
        fail(fault.what, fault.text);
    if (!app.parts) return status;
    for (const PartFacts& part : *app.parts) {
        if (!part.error.empty()) fail(part.name, part.error);
    }
    return status;
}

int show(const ShowOptions& options) {
    if (options.text && options.json)
        throw UsageError("--text", "cannot be given with --json; leave one out");
    const FileName file = options.text ? gitArgument(options.file) : appArgument(options.file);
    Cage().enter();
    const Snapshot app = takeSnapshot(file);
    // git would keep the text for good.
    if (options.text && app.mayReadMoreLater()) return reportFaults(file, app);
    print(options.json ? jsonLine(jsonOf(file, app)) : textOf(app));
    return options.text ? kDone : reportFaults(file, app);
}

}  // namespace

Action declareShow(CLI::App& command) {
    const auto options = std::make_shared<ShowOptions>();
    command.add_option("FILE", options->file, "A packaged (.kvpkg) or text (.k) app, or \"-\"")
        ->required()
        ->type_name("");
    command.add_flag("--text", options->text,
                     "For git: do not fail for a damaged app; the text says what cannot be "
                     "read");
    command.add_flag("--json", options->json, "Print one JSON object");
    command.footer(
        "Shows the metadata, size and SHA-256 of the screenshot and of each part, and the code, "
        "in\n"
        "an order that never changes. To see apps as text in \"git diff\" and \"git log -p\":\n"
        "  echo '*.kvpkg diff=qzapp' >> .gitattributes\n"
        "  git config diff.qzapp.textconv 'qzapp show --text --'\n\n"
        "Example:\n"
        "  qzapp show atlas.kvpkg");
    return [options] { return show(*options); };
}

}  // namespace qzapp
