#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <fl/FileDescriptor.hpp>
#include <fl/i18n.hpp>
#include <foundation/ustring.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "app/AppContent.hpp"
#include "app/Error.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/MetadataJson.hpp"
#include "app/SafeImage.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/ProgressBar.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/cli/TerminalText.hpp"
#include "tools/qzapp/verbs/OutputFolder.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

using appserialization::AppMetadataReader;
using appserialization::Screenshot;
using fl::filesystem::FileDescriptor;

constexpr std::array<const char*, 4> kKinds = {"code", "model", "screenshot", "metadata"};
// A longer "format" is not used as an extension.
constexpr std::size_t kMaxFormatLength = 16;
// Desktops ask for a thumbnail of every app in a folder. Even the largest screenshot takes only
// about a second.
constexpr std::chrono::seconds kThumbnailTime(20);

struct ExtractOptions {
    std::string file;
    std::optional<std::string> directory;
    std::optional<std::string> only;  // kinds, separated by commas
    bool force = false;
    bool thumbnail = false;
};

enum class Kind { Text, Binary };

// A file to be extracted: its name in the directory, and how to write it there or to standard
// output.
struct ExtractedFile {
    std::string name;
    Kind kind;
    std::function<void(FileDescriptor&)> fill;
    std::function<void()> send;
};

// The kinds that the user wants. By default these are all that the app has; a kind that the user
// names must exist.
class Selection {
public:
    explicit Selection(const ExtractOptions& options) : wantsThumbnail_(options.thumbnail) {
        const auto& only = options.only;
        if (wantsThumbnail_ && only != "screenshot")
            throw UsageError("--thumbnail", "only goes with --only screenshot; leave it out");
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
    // The number of kinds that the user names.
    std::size_t count() const { return only_.size(); }

    bool wantsThumbnail() const { return wantsThumbnail_; }

private:
    std::set<std::string> only_;
    bool wantsThumbnail_;
};

// Reads one kind. If it is damaged, the error says how to get the others.
template <class Read>
auto salvage(const FileName& file, const char* kind, Read read) {
    try {
        return about(file, read);
    } catch (const Error& e) {
        throw Error(file.shown,
                    fmt::format("{}; leave {} out with --only to get the rest", e.text(), kind));
    }
}

// Prints the bytes as they are; text for a terminal is made visibleText().
void send(const std::string& bytes, Kind kind) {
    print(kind == Kind::Text && outputIsTerminal() ? visibleText(bytes) : bytes);
}

// What is printed before a damaged place cannot be taken back; the exit status shows the failure.
void sendModel(const FileName& file) {
    const auto stream = openModel(file);
    about(file, [&] {
        stream->readTo([](std::span<const std::byte> bytes) {
            print({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
        });
    });
}

ExtractedFile madeOf(const std::string& name, Kind kind,
                     const std::function<std::string()>& bytes) {
    return {name, kind,
            [bytes](FileDescriptor& to) {
                const std::string content = bytes();
                to.writeAt(std::as_bytes(std::span(content)), 0);
            },
            [bytes, kind] { send(bytes(), kind); }};
}

ExtractedFile codeFile(const FileName& file) {
    if (formOf(file) == Form::Packaged) {
        return madeOf("code.k", Kind::Text,
                      [file] { return salvage(file, "code", [&] { return readCode(file); }); });
    }
    const auto fill = [file](FileDescriptor& to) { copyBytes(file, to); };
    return {"code.k", Kind::Text, fill, [file] { send(readCode(file), Kind::Text); }};
}

void fillWithModel(const FileName& file, FileDescriptor& to) {
    std::uint64_t size = 0;
    openModel(file)->readTo([&](std::span<const std::byte> bytes) {
        to.writeAt(bytes, size);
        size += bytes.size();
    });
}

ExtractedFile modelFile(const FileName& file) {
    const auto fill = [file](FileDescriptor& to) {
        salvage(file, "model", [&] { fillWithModel(file, to); });
    };
    return {"appModel.kvd", Kind::Binary, fill, [file] { sendModel(file); }};
}

// Whether the format can be a file extension. It is whatever the file says, and must not make the
// name lead out of the directory.
bool isPlain(const foundation::ustring& format) {
    return !format.empty() && format.size() <= kMaxFormatLength &&
           std::all_of(format.begin(), format.end(), [](char16_t c) {
               return (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') ||
                      (c >= u'a' && c <= u'z');
           });
}

// Throws unless the screenshot may be handed to the image library of a desktop.
void requireThumbnail(const FileName& file, const Screenshot& screenshot) {
    const auto& bytes = screenshot.second;
    if (isSafeImage({reinterpret_cast<const char*>(bytes.data()), bytes.size()})) return;
    throw Error(
        file.shown,
        fmt::format("the screenshot is not a PNG, JPEG or GIF image of at most {} and {} pixels a "
                    "side; leave out --thumbnail",
                    byteCount(kMaxPictureBytes), kMaxPictureSide));
}

ExtractedFile screenshotFile(const Screenshot& screenshot, std::vector<std::string>& notes) {
    std::string extension = "image";
    if (isPlain(screenshot.first)) {
        extension = fl::i18n::ustring_to_utf8(screenshot.first);
    } else {
        notes.push_back(
            fmt::format("the screenshot's format \"{}\" cannot be a file extension, so its file "
                        "ends in \".{}\"",
                        visible(screenshot.first), extension));
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

// The files to write, and notes for the user.
struct Plan {
    std::vector<ExtractedFile> files;
    std::vector<std::string> notes;
};

void planModel(Plan& plan, const FileName& file, const Selection& selection) {
    if (!selection.wants("model")) return;
    if (formOf(file) == Form::Packaged) {
        plan.files.push_back(modelFile(file));
    } else if (selection.names("model")) {
        lacks(file, "model, because it is a text app");
    }
}

void planScreenshot(Plan& plan, const FileName& file, const Selection& selection,
                    const AppMetadataReader& reader) {
    if (!selection.wants("screenshot")) return;
    const auto screenshot =
        salvage(file, "screenshot", [&] { return readScreenshot(file, reader); });
    if (!screenshot.first.empty() || !screenshot.second.empty()) {
        if (selection.wantsThumbnail()) requireThumbnail(file, screenshot);
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

// The folder that the user names; otherwise one next to the app, with the app's name without its
// extension.
FileName directoryFor(const FileName& file, const ExtractOptions& options) {
    if (options.directory) return fileArgument(*options.directory);
    if (file.isStream)
        throw UsageError(file.shown, "gives no name for the folder; name one with -o");
    const std::string name = file.shown.substr(0, file.shown.rfind('.'));
    const std::string last = name.substr(name.rfind('/') + 1);  // all of it when there is no slash
    if (last.empty() || last == "." || last == "..") {
        throw UsageError(file.shown, "gives no name for the folder; name one with -o");
    }
    return fileArgument(name);
}

int extractToFolder(const FileName& file, const Selection& selection,
                    const ExtractOptions& options) {
    const FileName directory = directoryFor(file, options);
    // A link with the default name, which the user did not give, may have been planted by another
    // user.
    const auto links =
        options.directory ? OutputFolder::Links::Follow : OutputFolder::Links::Refuse;
    OutputFolder folder(directory, links);
    Cage cage;
    folder.allowIn(cage);
    cage.enter();
    const Plan plan = planFor(file, selection);
    std::vector<std::string> names;
    for (const ExtractedFile& each : plan.files)
        names.push_back(each.name);
    folder.expect(names, options.force);
    for (const std::string& name : names)
        requireNoInput(folder.nameOf(name), {file});
    {
        const ProgressBar progress(sizeOf(file));
        for (const ExtractedFile& each : plan.files)
            about(folder.nameOf(each.name), [&] { each.fill(folder.create(each.name)); });
    }
    requireUnchanged(file);
    folder.commit();
    std::string text;
    for (const std::string& name : names)
        text += fmt::format("wrote {}\n", visible(folder.nameOf(name).shown));
    for (const std::string& note : plan.notes)
        text += "note: " + note + "\n";
    printReport(directory, text);
    return kDone;
}

int extractToOutput(const FileName& file, const Selection& selection) {
    if (selection.count() != 1) {
        throw UsageError("-o -", fmt::format("standard output takes one kind; name one of {} "
                                             "with --only",
                                             fmt::join(kKinds, ", ")));
    }
    requireOutputIsNoInput({file});
    Cage().enter();
    const Plan plan = planFor(file, selection);
    const ExtractedFile& only = plan.files.front();
    if (only.kind == Kind::Binary && outputIsTerminal()) {
        throw Error(kStandardOutput,
                    fmt::format("{} is not text for a terminal; send it to a file or a program",
                                only.name));
    }
    // On a terminal the text itself shows the progress.
    const ProgressBar progress(outputIsTerminal() ? 0 : sizeOf(file));
    only.send();
    requireUnchanged(file);
    return kDone;
}

int extract(const ExtractOptions& options) {
    const FileName file = appArgument(options.file);
    const Selection selection(options);
    if (options.thumbnail) limitProcessorTime(kThumbnailTime);
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
                    "The folder to write to, made if it does not exist; by default FILE "
                    "without its extension")
        ->type_name("DIR");
    command.add_option("--only", options->only, "What to write: code, model, screenshot, metadata")
        ->type_name("KIND,...");
    command.add_flag("--force", options->force, "Replace files that exist");
    command.add_flag("--thumbnail", options->thumbnail,
                     "With --only screenshot: fail unless it is a PNG, JPEG or GIF image of "
                     "modest size");
    command.footer(
        "Writes code.k, appModel.kvd (not from a text app, which has no model), screenshot.FORMAT\n"
        "and metadata.json: all or none. With one KIND, DIR may be \"-\", standard output.\n\n"
        "Examples:\n"
        "  qzapp extract atlas.kvpkg -o work --only code,metadata\n"
        "  qzapp extract atlas.kvpkg --only screenshot -o - > atlas.png");
    return [options] { return extract(*options); };
}

}  // namespace qzapp
