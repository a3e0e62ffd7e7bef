#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <appserialization/AppMetadataReader.hpp>
#include <fl/FileDescriptor.hpp>
#include <fl/filesystem.hpp>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>
#include <foundation/Threads.hpp>
#include <opc/ZipArchive.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "app/AppFolder.hpp"
#include "app/Error.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/SafeImage.hpp"
#include "app/ScratchFile.hpp"
#include "app/Transaction.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/cli/ForEachApp.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/ProgressBar.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/cli/Worker.hpp"
#include "tools/qzapp/gallery/GalleryFolder.hpp"
#include "tools/qzapp/gallery/GalleryHtml.hpp"
#include "tools/qzapp/gallery/GalleryPictures.hpp"
#include "tools/qzapp/gallery/GalleryPieces.hpp"
#include "tools/qzapp/gallery/GalleryRecord.hpp"
#include "tools/qzapp/pictures/PictureScaler.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

struct GalleryOptions {
    std::vector<std::string> names;
    std::string out;
    std::optional<std::string> title;
    bool asFolder = false;
    bool force = false;
};

// More apps than this make a page that opens slowly.
constexpr std::size_t kMostOnPage = 1'000;

// A file that may be an app: one that was found in a folder, or one that was named.
struct Source {
    std::string name, shown;
    bool isListed;
};

// What the command line names.
struct Sources {
    struct Gap {
        std::string name, shown, reason;
    };
    std::vector<Source> files;
    std::vector<Gap> unlisted;
};

// If one folder is named, its apps are shown by their names in it.
Sources sourcesOf(const std::vector<std::string>& names, Cage& cage) {
    Sources sources;
    for (const std::string& name : names) {
        const FileName file = fileArgument(name);
        if (!isFolder(name)) {
            appArgument(name);  // throws if it cannot be opened
            cage.mayRead(file.bytes());
            sources.files.push_back({name, name, false});
            continue;
        }
        const AppsBelow found = appsBelow(file);
        letRead(cage, file.bytes(), found.files);
        const std::size_t prefix =
            names.size() > 1 ? 0 : name.size() + (name.ends_with('/') ? 0 : 1);
        for (const std::string& each : found.files)
            sources.files.push_back({each, each.substr(prefix), true});
        for (const Unlisted& each : found.unlisted)
            sources.unlisted.push_back({each.name, each.name.substr(prefix), each.reason});
    }
    return sources;
}

// Opens and holds a source. Nothing if it is one in a folder without an app.
std::optional<FileName> openSource(const Source& source) {
    return source.isListed ? openListed(source.name) : appArgument(source.name);
}

using WriteAt = std::function<void(std::string_view, std::uint64_t)>;

// The card of an app, or of the reason why it cannot be read.
struct Card {
    std::optional<std::string> html;  // none for a source that is not an app
    std::optional<std::string> error = {};
};

Card cardOf(const Source& source) {
    const std::string& shown = source.shown;
    try {
        const auto file = openSource(source);
        if (!file) return {std::nullopt};
        const auto reader = openApp(*file);
        return about(*file, [&]() -> Card {
            Card card{appCard(shown, reader->readMetadata(), readScreenshot(*file, *reader))};
            requireUnchanged(*file);
            return card;
        });
    } catch (const Error& e) {
        return {failedCard(shown, e.text()), e.what()};
    }
}

// Calls `take` with what `ask` makes of each source, in their order; several threads ask. Holds only a few
// results at a time, because all of them may not fit into memory.
template <class Result>
void forEachSource(const std::vector<Source>& sources,
                   const std::function<Result(const Source&)>& ask,
                   const std::function<void(const Result&)>& take) {
    struct Slot {
        const Source* source = nullptr;
        Result result;
    };
    std::atomic<std::uint64_t> done = 0;
    const ProgressBar progress(sources.size(), done);
    foundation::threads::Pipeline pipeline;
    pipeline.slots = foundation::threads::limit() + 1;
    std::vector<Slot> slots(pipeline.slots);
    auto next = sources.begin();
    pipeline.feed = [&](std::size_t slot) {
        if (next == sources.end()) return false;
        slots[slot].source = &*next++;
        return true;
    };
    pipeline.work = [&](std::size_t slot) { slots[slot].result = ask(*slots[slot].source); };
    pipeline.take = [&](std::size_t slot) {
        take(slots[slot].result);
        ++done;
    };
    pipeline.run();
}

// Returns the number of apps. That is known only at the end, because each source must be read to see
// whether it is an app, so it is written into the room that was left for it.
std::size_t writePage(const WriteAt& write, const std::string& title, const Sources& sources,
                      const Complain& complain) {
    const PageFrame frame = pageFrame(title);
    std::uint64_t end = 0;
    const auto append = [&](std::string_view text) {
        write(text, end);
        end += text.size();
    };
    std::size_t apps = 0;
    append(frame.head);
    forEachSource<Card>(sources.files, cardOf, [&](const Card& card) {
        if (card.error) complain(*card.error);
        if (card.html) {
            append(*card.html);
            ++apps;
        }
    });
    for (const Sources::Gap& each : sources.unlisted) {
        complain(each.name + ": " + each.reason);
        append(failedCard(each.shown, each.reason));
    }
    append(frame.tail);
    write(appCount(apps), frame.placeOfCount);
    return apps;
}

// Prints the page when it is complete, because its head needs the number of apps.
void printPage(const std::string& title, const std::vector<std::string>& names,
               const Complain& complain) {
    constexpr const char* kName = "the page";
    fl::filesystem::FileDescriptor kept = makeScratchFile(kName);
    const auto write = [&](std::string_view text, std::uint64_t offset) {
        try {
            kept.writeAt(std::as_bytes(std::span(text)), offset);
        } catch (const std::system_error& e) {
            throwNotKept(kName, e.code().message());
        }
    };
    Cage cage;
    const Sources sources = sourcesOf(names, cage);
    cage.enter();
    writePage(write, title, sources, complain);
    readToEnd({kName, kept.privateName(u"page.html")}, [](std::span<const std::byte> bytes) {
        print({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    });
}

// Refuses the name of an app, so that no page replaces one.
void requireNoApp(const FileName& out, const fl::filesystem::path& target) {
    const auto name = fl::i18n::to_lower(target.filename());
    if (!name.ends_with(kPackagedExtension) && !name.ends_with(kTextExtension)) return;
    throw UsageError(out.shown,
                     "is, or leads to, the name of an app; choose another for the page, "
                     "such as apps.html");
}

// Refuses to replace an app that has some other name. A package may have a program in front of it,
// or have lost its front, so all of the file is searched. The pages of this verb hold no signature,
// because in them control characters are escaped.
void requireHoldsNoApp(const FileName& out) {
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(out.bytes(), ignored)) return;
    const auto opened = openFile(out);
    const bool isPackage = about(out, [&] { return opc::zip::holdsZipSignature(opened); });
    if (!isPackage && !isTextApp(out)) return;
    throw UsageError(out.shown,
                     "holds an app; choose another file for the page, such as apps.html");
}

// What a gallery in a folder shows of a source.
struct Shown {
    std::optional<GalleryRecord> record;  // none for a source that is not an app
    std::optional<std::string> error = {};
};

// The path of a file without links in its folders.
std::string withoutLinks(const std::string& name) {
    const std::filesystem::path path(name);
    std::error_code ignored;
    const auto folder =
        std::filesystem::canonical(path.has_parent_path() ? path.parent_path() : ".", ignored);
    return (folder / path.filename()).string();
}

Shown shownOf(const Source& source, const std::string& folder, GalleryPictures& pictures) {
    GalleryRecord record;
    record.file = source.shown;
    record.link = linkTo(withoutLinks(source.name), folder);
    appserialization::Screenshot screenshot;
    try {
        const auto file = openSource(source);
        if (!file) return {std::nullopt};
        const auto reader = openApp(*file);
        about(*file, [&] {
            record.metadata = reader->readMetadata();
            screenshot = readScreenshot(*file, *reader);
            requireUnchanged(*file);
        });
    } catch (const Error& e) {
        record.failure = e.text();
        return {std::move(record), e.what()};
    }
    // If the picture cannot be written, all of the gallery fails.
    const auto& bytes = screenshot.second;
    pictures.add({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, record);
    return {std::move(record)};
}

// The records of the apps that the command line names.
RecordSource recordsOf(const Sources& sources, const std::string& folder, GalleryPictures& pictures,
                       const Complain& complain) {
    return [&](const std::function<void(const GalleryRecord&)>& take) {
        forEachSource<Shown>(
            sources.files, [&](const Source& source) { return shownOf(source, folder, pictures); },
            [&](const Shown& shown) {
                if (shown.error) complain(*shown.error);
                if (shown.record) take(*shown.record);
            });
        for (const Sources::Gap& each : sources.unlisted) {
            complain(each.name + ": " + each.reason);
            GalleryRecord record;
            record.file = each.shown;
            record.failure = each.reason;
            take(record);
        }
    };
}

std::string countOf(std::size_t apps) {
    return fmt::format("{} app{}", apps, apps == 1 ? "" : "s");
}

// The process that reads the apps can write into the new folder only; this one puts that in place.
void writeFolder(const GalleryOptions& options, const std::string& title, int& status,
                 const Complain& complain) {
    const FileName out = fileArgument(options.out);
    pictures::PictureScaler scaler;
    GalleryFolder folder(out, options.force);
    fl::filesystem::FileDescriptor scratch = makeGalleryScratch();
    Cage cage;
    folder.allowIn(cage);
    const Sources sources = sourcesOf(options.names, cage);
    const std::string told = inCage(cage, [&] {
        GalleryPictures pictures(scaler, folder);
        const std::size_t apps =
            writeGallery(folder, std::move(scratch), title,
                         recordsOf(sources, folder.path(), pictures, complain));
        return fmt::format("{} {}", status, apps);
    });
    std::size_t apps = 0;
    std::istringstream(told) >> status >> apps;
    folder.commit();
    printReport(out, fmt::format("wrote {} with {}; open {}/{}\n", visible(out.shown),
                                 countOf(apps), visible(out.shown), galleryfiles::kPage));
}

int gallery(const GalleryOptions& options) {
    for (const std::string& name : options.names) {
        if (fileArgument(name).shown == kStandardStream)
            throw UsageError(name, "cannot be read from standard input; name folders or files");
    }
    int status = kDone;
    const auto complain = [&](const std::string& text) {
        report(text);
        status = kFailed;
    };
    const std::string title = options.title.value_or(
        options.names.size() == 1 ? "Apps in " + options.names.front() : "Apps");
    if (options.asFolder) {
        writeFolder(options, title, status, complain);
        return status;
    }
    if (options.out == kStandardStream) {
        printPage(title, options.names, complain);
        return status;
    }
    const FileName out = fileArgument(options.out);
    requireNoApp(out, out.path);
    requireAbsent(out, options.force);
    Transaction transaction(out, Transaction::Start::Empty);
    requireNoApp(out, transaction.resolvedTarget());
    requireHoldsNoApp(out);
    const auto write = [&](std::string_view text, std::uint64_t offset) {
        transaction.write(text, offset);
    };
    Cage cage;
    const Sources sources = sourcesOf(options.names, cage);
    // The process that reads the apps can write to the open page only. Putting that in place needs rights
    // to the whole folder, which this process keeps.
    const std::string told = inCage(cage, [&] {
        const std::size_t count = writePage(write, title, sources, complain);
        return fmt::format("{} {}", status, count);
    });
    std::size_t apps = 0;
    std::istringstream(told) >> status >> apps;
    transaction.commit();
    const char* hint = apps > kMostOnPage ? "; with --folder it would open faster" : "";
    printReport(out, fmt::format("wrote {} with {}{}\n", visible(out.shown), countOf(apps), hint));
    return status;
}

}  // namespace

Action declareGallery(CLI::App& command) {
    const auto options = std::make_shared<GalleryOptions>();
    command
        .add_option("DIR|FILE", options->names,
                    "Apps, and folders with apps, also in folders below them")
        ->required()
        ->type_name("");
    command
        .add_option("-o,--output", options->out,
                    "The page to write; \"-\" is standard output. With --folder, the folder")
        ->required()
        ->type_name("OUT");
    command.add_flag("--folder", options->asFolder,
                     "Write a folder, for any number of apps, with scaled pictures");
    command.add_option("--title", options->title, "The heading of the page")->type_name("TEXT");
    command.add_flag("--force", options->force,
                     "Replace OUT if it exists: a page, but no app; a folder, if it is a gallery");
    command.footer(
        "Writes one HTML page of all apps, with search and sort, that needs no network and no "
        "other\n"
        "file. It contains all screenshots of up to " +
        foundation::shownMebibytes(kMaxPictureBytes) +
        fmt::format(" each, and takes a third more space\n"
                    "than they do, so it is for up to {} apps or so.\n\n"
                    "With --folder, OUT becomes a folder with a page, \"{}\", data that it loads "
                    "in pieces, "
                    "and\n"
                    "scaled pictures. It works from a disk and from any web server, and links to "
                    "the files of the\n"
                    "apps by relative paths, so move it together with them. Screenshots are "
                    "decoded in a process\n"
                    "that can reach nothing but memory.\n\n"
                    "An app or folder that cannot be read is listed with the reason, and the exit "
                    "status is 1. "
                    "Files\n"
                    "and folders whose names begin with a dot are left out.\n\n"
                    "Examples:\n"
                    "  qzapp gallery apps -o apps.html --title \"Apps of the lab\"\n"
                    "  qzapp gallery apps --folder -o site/gallery",
                    kMostOnPage, galleryfiles::kPage));
    return [options] { return gallery(*options); };
}

}  // namespace qzapp
