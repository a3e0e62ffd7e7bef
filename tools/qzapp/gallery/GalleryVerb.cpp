#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <fl/FileDescriptor.hpp>
#include <fl/filesystem.hpp>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>
#include <opc/ZipArchive.hpp>

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
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/cli/Worker.hpp"
#include "tools/qzapp/gallery/AppsInCatalogue.hpp"
#include "tools/qzapp/gallery/AppsInFiles.hpp"
#include "tools/qzapp/gallery/GalleryFolder.hpp"
#include "tools/qzapp/gallery/GalleryHtml.hpp"
#include "tools/qzapp/gallery/GalleryPieces.hpp"
#include "tools/qzapp/gallery/GalleryRecord.hpp"
#include "tools/qzapp/pictures/PictureScaler.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

struct GalleryOptions {
    std::vector<std::string> names;
    std::optional<std::string> catalogue;
    std::string out;
    std::optional<std::string> title;
    bool asFolder = false;
    bool force = false;
};

// More apps than this make a page that opens slowly.
constexpr std::size_t kMostOnPage = 1'000;

std::unique_ptr<GalleryApps> appsOf(const GalleryOptions& options, const Complain& complain,
                                    Cage& cage) {
    if (options.catalogue)
        return std::make_unique<AppsInCatalogue>(fileArgument(*options.catalogue), cage);
    return std::make_unique<AppsInFiles>(options.names, complain, cage);
}

using WriteAt = std::function<void(std::string_view, std::uint64_t)>;

// Returns the number of apps. That is known only at the end, because each source must be read to
// see whether it is an app, so it is written into the room that was left for it.
std::size_t writePage(const WriteAt& write, const std::string& title, const CardSource& cards) {
    const PageFrame frame = pageFrame(title);
    std::uint64_t end = 0;
    const auto append = [&](std::string_view text) {
        write(text, end);
        end += text.size();
    };
    std::size_t apps = 0;
    append(frame.head);
    cards([&](const Card& card) {
        append(card.html);
        if (card.isApp) ++apps;
    });
    append(frame.tail);
    write(appCount(apps), frame.placeOfCount);
    return apps;
}

// Prints the page when it is complete, because its head needs the number of apps.
void printPage(const GalleryOptions& options, const std::string& title, const Complain& complain) {
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
    const auto apps = appsOf(options, complain, cage);
    cage.enter();
    writePage(write, title, apps->cards());
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
    const auto apps = appsOf(options, complain, cage);
    const std::string told = inCage(cage, [&] {
        const std::size_t count =
            writeGallery(folder, std::move(scratch), title, apps->records(folder, scaler));
        return fmt::format("{} {}", status, count);
    });
    std::size_t count = 0;
    std::istringstream(told) >> status >> count;
    folder.commit();
    printReport(out, fmt::format("wrote {} with {}; open {}/{}\n", visible(out.shown),
                                 countOf(count), visible(out.shown), galleryfiles::kPage));
}

void requireSense(const GalleryOptions& options) {
    if (options.catalogue && !options.names.empty())
        throw UsageError("--database", "cannot be given with folders or files; leave one out");
    if (!options.catalogue && options.names.empty()) {
        throw UsageError("gallery",
                         "name folders or files with apps, or a catalogue with --database");
    }
    if (options.asFolder && options.out == kStandardStream)
        throw UsageError("--output",
                         "\"-\" is standard output, and --folder needs a folder; name one");
    for (const std::string& name : options.names) {
        if (fileArgument(name).shown == kStandardStream)
            throw UsageError(name, "cannot be read from standard input; name folders or files");
    }
}

// The heading if none is given.
std::string titleOf(const GalleryOptions& options) {
    if (options.catalogue) return "Apps in " + *options.catalogue;
    return options.names.size() == 1 ? "Apps in " + options.names.front() : "Apps";
}

int gallery(const GalleryOptions& options) {
    requireSense(options);
    int status = kDone;
    const auto complain = [&](const std::string& text) {
        report(text);
        status = kFailed;
    };
    const std::string title = options.title ? *options.title : titleOf(options);
    if (options.asFolder) {
        writeFolder(options, title, status, complain);
        return status;
    }
    if (options.out == kStandardStream) {
        printPage(options, title, complain);
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
    const auto apps = appsOf(options, complain, cage);
    // The process that reads the apps can write to the open page only. Putting that in place needs
    // rights to the whole folder, which this process keeps.
    const std::string told = inCage(cage, [&] {
        const std::size_t count = writePage(write, title, apps->cards());
        return fmt::format("{} {}", status, count);
    });
    std::size_t count = 0;
    std::istringstream(told) >> status >> count;
    transaction.commit();
    const char* hint = count > kMostOnPage ? "; with --folder it would open faster" : "";
    printReport(out, fmt::format("wrote {} with {}{}\n", visible(out.shown), countOf(count), hint));
    return status;
}

}  // namespace

Action declareGallery(CLI::App& command) {
    const auto options = std::make_shared<GalleryOptions>();
    command
        .add_option("DIR|FILE", options->names,
                    "Apps, and folders with apps, also in folders below them")
        ->type_name("");
    command
        .add_option("-d,--database", options->catalogue,
                    "Show the apps of a catalogue of \"qzapp index\" instead, without reading them")
        ->type_name("CATALOG.db");
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
                    "and folders whose names begin with a dot are left out. The pictures of a "
                    "catalogue are the\n"
                    "scaled ones that it holds; apps that were merged from another one have no "
                    "links.\n\n"
                    "Examples:\n"
                    "  qzapp gallery apps -o apps.html --title \"Apps of the lab\"\n"
                    "  qzapp gallery apps --folder -o site/gallery\n"
                    "  qzapp gallery -d apps.db --folder -o site/gallery",
                    kMostOnPage, galleryfiles::kPage));
    return [options] { return gallery(*options); };
}

}  // namespace qzapp
