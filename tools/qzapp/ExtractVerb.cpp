#include <fmt/format.h>
#include <CLI/Option.hpp>
#include <appserialization/AppFileReader.hpp>
#include <fl/i18n.hpp>

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "tools/qzapp/Arguments.hpp"
#include "tools/qzapp/CodeAndModel.hpp"
#include "tools/qzapp/Directory.hpp"
#include "tools/qzapp/Display.hpp"
#include "tools/qzapp/Errors.hpp"
#include "tools/qzapp/Files.hpp"
#include "tools/qzapp/Forms.hpp"
#include "tools/qzapp/MetadataJson.hpp"
#include "tools/qzapp/Output.hpp"
#include "tools/qzapp/Progress.hpp"
#include "tools/qzapp/StandardInput.hpp"
#include "tools/qzapp/Transaction.hpp"
#include "tools/qzapp/Verbs.hpp"

namespace qzapp {
namespace {

using appserialization::AppMetadataReader;
using appserialization::Screenshot;

constexpr std::array<const char*, 4> kKinds = {"code", "model", "screenshot", "metadata"};
// A longer "format" is none.
constexpr std::size_t kMaxFormatLength = 16;

struct ExtractOptions {
    std::string file;
    std::optional<std::string> directory;
    std::optional<std::string> only;  // kinds with commas between
    bool force = false;
};

enum class Kind { Text, Binary };

// A file to be written: its name in the directory, and how to fill it, or else standard output.
struct ExtractedFile {
    std::string name;
    Kind kind;
    std::function<void(Transaction&)> fill;
    std::function<void()> send;
};

// What was asked for. By default that is all there is; what was named must be there.
class Selection {
public:
    explicit Selection(const std::optional<std::string>& only) {
        if (!only) return;
        if (only->empty())
            throw UsageError(
                "--only", fmt::format("names nothing; name some of {}", fmt::join(kKinds, ", ")));
        std::istringstream kinds(*only);
        for (std::string kind; std::getline(kinds, kind, ',');) {
            if (std::find(kKinds.begin(), kKinds.end(), kind) == kKinds.end()) {
                throw UsageError("--only", fmt::format("\"{}\" is not one of {}", kind,
                                                       fmt::join(kKinds, ", ")));
            }
            only_.insert(kind);
        }
    }
    bool wants(const char* kind) const { return only_.empty() || only_.contains(kind); }
    bool names(const char* kind) const { return only_.contains(kind); }
    // How many kinds were named.
    std::size_t count() const { return only_.size(); }

private:
    std::set<std::string> only_;
};

// Reads something out of the app; what is damaged need not keep anybody from the rest.
template <class Read>
auto salvage(const FileName& file, const char* kind, Read read) {
    try {
        return about(file, read);
    } catch (const Error& e) {
        throw Error(file.shown,
                    fmt::format("{}; leave {} out with --only to get the rest", e.text(), kind));
    }
}

// Text as it is, for a terminal without what would drive it.
void send(const std::string& bytes, Kind kind) {
    print(kind == Kind::Text && outputIsTerminal() ? visibleText(bytes) : bytes);
}

// What comes out before a damaged place cannot be taken back; the exit status tells.
void sendModel(const FileName& file) {
    const auto stream = openModel(file);
    about(file, [&] {
        readToEnd(*stream, [](std::span<const std::byte> bytes) {
            print({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
        });
    });
}

ExtractedFile madeOf(const std::string& name, Kind kind, std::function<std::string()> bytes) {
    return {name, kind, [bytes](Transaction& to) { to.write(bytes()); },
            [bytes, kind] { send(bytes(), kind); }};
}

ExtractedFile codeFile(const FileName& file) {
    if (formOf(file) == Form::Packaged) {
        return madeOf("code.k", Kind::Text,
                      [file] { return salvage(file, "code", [&] { return readCode(file); }); });
    }
    return {"code.k", Kind::Text, [file](Transaction& to) { to.copyFrom(openFile(file)); },
            [file] { send(readCode(file), Kind::Text); }};
}

ExtractedFile modelFile(const FileName& file) {
    const auto fill = [file](Transaction& to) {
        salvage(file, "model", [&] {
            appserialization::AppFileReader(file.native())
                .copyAppDataToTempFile(to.workingFile().native());
        });
    };
    return {"appModel.kvd", Kind::Binary, fill, [file] { sendModel(file); }};
}

// A format is whatever the file says, and must not lead the name out of the directory.
bool isPlain(const foundation::ustring& format) {
    return !format.empty() && format.size() <= kMaxFormatLength &&
           std::all_of(format.begin(), format.end(), [](char16_t c) {
               return (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') ||
                      (c >= u'a' && c <= u'z');
           });
}

ExtractedFile screenshotFile(const Screenshot& screenshot, std::vector<std::string>& notes) {
    std::string extension = "image";
    if (isPlain(screenshot.first)) {
        extension = fl::i18n::ustring_to_utf8(screenshot.first);
    } else {
        notes.push_back(fmt::format("the screenshot's format \"{}\" is no file extension",
                                    visible(screenshot.first)));
    }
    return madeOf("screenshot." + extension, Kind::Binary,
                  [bytes = screenshot.second] { return std::string(bytes.begin(), bytes.end()); });
}

ExtractedFile metadataFile(const FileName& file, const AppMetadataReader& reader) {
    const auto record = salvage(file, "metadata", [&] { return reader.readMetadata(); });
    return madeOf("metadata.json", Kind::Text,
                  [text = jsonDocument(toJson(record))] { return text; });
}

[[noreturn]] void lacks(const FileName& file, const char* what) {
    throw Error(file.shown, fmt::format("has no {}; leave it out of --only", what));
}

// The files to write, and what there is to say about them.
struct Plan {
    std::vector<ExtractedFile> files;
    std::vector<std::string> notes;
};

void planModel(Plan& plan, const FileName& file, const Selection& selection) {
    if (!selection.wants("model")) return;
    if (formOf(file) == Form::Packaged) {
        plan.files.push_back(modelFile(file));
    } else if (selection.names("model")) {
        lacks(file, "model, being a text app");
    }
}

void planScreenshot(Plan& plan, const FileName& file, const Selection& selection,
                    const AppMetadataReader& reader) {
    if (!selection.wants("screenshot")) return;
    const auto screenshot =
        salvage(file, "screenshot", [&] { return readScreenshot(file, reader); });
    if (!screenshot.first.empty() || !screenshot.second.empty()) {
        plan.files.push_back(screenshotFile(screenshot, plan.notes));
    } else if (selection.names("screenshot")) {
        lacks(file, "screenshot");
    }
}

Plan planFor(const FileName& file, const Selection& selection) {
    const auto reader = openApp(file);
    Plan plan;
    if (selection.wants("code")) plan.files.push_back(codeFile(file));
    planModel(plan, file, selection);
    planScreenshot(plan, file, selection, *reader);
    if (selection.wants("metadata")) plan.files.push_back(metadataFile(file, *reader));
    return plan;
}

// The app's name without its extension.
FileName directoryFor(const FileName& file, const ExtractOptions& options) {
    if (options.directory) return fileArgument(*options.directory);
    if (isStandardInput(file))
        throw UsageError(file.shown, "has no name for a folder; name one with -o");
    return fileArgument(file.shown.substr(0, file.shown.rfind('.')));
}

// Writes all files beside their places before it puts the first in its place.
void writeFiles(const FileName& directory, const std::vector<ExtractedFile>& files, bool force) {
    NewDirectories made(directory);
    std::vector<std::unique_ptr<Transaction>> transactions;
    for (const ExtractedFile& file : files) {
        requireAbsent(fileIn(directory, file.name), force);
        requireNoLink(fileIn(directory, file.name));
    }
    for (const ExtractedFile& file : files) {
        transactions.push_back(
            std::make_unique<Transaction>(fileIn(directory, file.name), Transaction::Start::Empty));
        file.fill(*transactions.back());
    }
    for (const auto& transaction : transactions)
        transaction->commit();
    made.keep();
}

int extractToFolder(const FileName& file, const Selection& selection,
                    const ExtractOptions& options) {
    const Plan plan = planFor(file, selection);
    const FileName directory = directoryFor(file, options);
    {
        const Progress progress(sizeOf(file));
        writeFiles(directory, plan.files, options.force);
    }
    std::string text;
    for (const ExtractedFile& written : plan.files) {
        text += fmt::format("wrote {}\n", visible(fileIn(directory, written.name).shown));
    }
    for (const std::string& note : plan.notes)
        text += "note: " + note + "\n";
    print(text);
    return kDone;
}

int extractToOutput(const FileName& file, const Selection& selection) {
    if (selection.count() != 1) {
        throw UsageError("-o -", fmt::format("standard output takes one thing; name one of {} "
                                             "with --only",
                                             fmt::join(kKinds, ", ")));
    }
    const Plan plan = planFor(file, selection);
    const ExtractedFile& only = plan.files.front();
    if (only.kind == Kind::Binary && outputIsTerminal()) {
        throw Error(
            "standard output",
            fmt::format("{} is no text for a terminal; send it to a file or a program", only.name));
    }
    // On a terminal the text itself tells how far it is.
    const Progress progress(outputIsTerminal() ? 0 : sizeOf(file));
    only.send();
    return kDone;
}

int extract(const ExtractOptions& options) {
    const FileName file = appArgument(options.file);
    const Selection selection(options.only);
    if (options.directory == kStandardStream) return extractToOutput(file, selection);
    return extractToFolder(file, selection, options);
}

}  // namespace

Action declareExtract(CLI::App& command) {
    const auto options = std::make_shared<ExtractOptions>();
    command.add_option("FILE", options->file, "A packaged (.kvpkg) or text (.k) app, or \"-\"")
        ->required()
        ->type_name("");
    command
        .add_option("-o,--output", options->directory,
                    "Where to; made if need be. Default: FILE without its extension")
        ->type_name("DIR");
    command.add_option("--only", options->only, "What to write: code, model, screenshot, metadata")
        ->type_name("KIND,...");
    command.add_flag("--force", options->force, "Replace files that exist");
    command.footer(
        "Writes code.k, appModel.kvd, screenshot.FORMAT and metadata.json, all or none. A text "
        "app\n"
        "has no model. With one KIND, DIR may be \"-\", standard output.\n\n"
        "Examples:\n"
        "  qzapp extract atlas.kvpkg -o work --only code,metadata\n"
        "  qzapp extract atlas.kvpkg --only screenshot -o - > atlas.png");
    return [options] { return extract(*options); };
}

}  // namespace qzapp
