#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
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
#include "tools/qzapp/gallery/GalleryHtml.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

struct GalleryOptions {
    std::string folder;
    std::string out;
    std::optional<std::string> title;
    bool force = false;
};

using WriteAt = std::function<void(std::string_view, std::uint64_t)>;

// The card of an app, or of the reason why it cannot be read.
struct Card {
    std::optional<std::string> html;  // none for a source that is not an app
    std::optional<std::string> error = {};
};

Card cardOf(const std::string& name, const std::string& shown) {
    try {
        const auto file = openListed(name);
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

// Calls `take` with the cards in the order of the files, which several threads read. Holds only a few
// cards at a time, because all of them may not fit into memory.
void forEachCard(const std::vector<std::string>& files, std::size_t prefix,
                 const std::function<void(const Card&)>& take) {
    struct Slot {
        const std::string* file = nullptr;
        Card card;
    };
    foundation::threads::Pipeline pipeline;
    pipeline.slots = foundation::threads::limit() + 1;
    std::vector<Slot> slots(pipeline.slots);
    auto next = files.begin();
    pipeline.feed = [&](std::size_t slot) {
        if (next == files.end()) return false;
        slots[slot].file = &*next++;
        return true;
    };
    pipeline.work = [&](std::size_t slot) {
        const std::string& file = *slots[slot].file;
        slots[slot].card = cardOf(file, file.substr(prefix));
    };
    pipeline.take = [&](std::size_t slot) { take(slots[slot].card); };
    pipeline.run();
}

// Returns the number of apps. That is known only at the end, because each source must be read to see
// whether it is an app, so it is written into the room that was left for it.
std::size_t writePage(const WriteAt& write, const std::string& title, const FileName& folder,
                      const AppsBelow& found, const Complain& complain) {
    const auto& [files, unlisted] = found;
    const PageFrame frame = pageFrame(title);
    const std::size_t prefix = folder.bytes().size() + (folder.bytes().ends_with('/') ? 0 : 1);
    std::uint64_t end = 0;
    const auto append = [&](std::string_view text) {
        write(text, end);
        end += text.size();
    };
    std::atomic<std::uint64_t> done = 0;
    const ProgressBar progress(files.size(), done);
    std::size_t apps = 0;
    append(frame.head);
    forEachCard(files, prefix, [&](const Card& card) {
        if (card.error) complain(*card.error);
        if (card.html) {
            append(*card.html);
            ++apps;
        }
        ++done;
    });
    for (const Unlisted& each : unlisted) {
        complain(each.name + ": " + each.reason);
        append(failedCard(each.name.substr(prefix), each.reason));
    }
    append(frame.tail);
    write(appCount(apps), frame.placeOfCount);
    return apps;
}

Cage cageFor(const FileName& folder, const AppsBelow& found) {
    Cage cage;
    letRead(cage, folder.bytes(), found.files);
    return cage;
}

// Prints the page when it is complete, because its head needs the number of apps.
void printPage(const std::string& title, const FileName& folder, const Complain& complain) {
    constexpr const char* kName = "the page";
    fl::filesystem::FileDescriptor kept = makeScratchFile(kName);
    const auto write = [&](std::string_view text, std::uint64_t offset) {
        try {
            kept.writeAt(std::as_bytes(std::span(text)), offset);
        } catch (const std::system_error& e) {
            throwNotKept(kName, e.code().message());
        }
    };
    const AppsBelow found = appsBelow(folder);
    cageFor(folder, found).enter();
    writePage(write, title, folder, found, complain);
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

int gallery(const GalleryOptions& options) {
    const FileName folder = fileArgument(options.folder);
    if (!isFolder(options.folder))
        throw Error(folder.shown, "is not a folder; name the one with the apps");
    int status = kDone;
    const auto complain = [&](const std::string& text) {
        report(text);
        status = kFailed;
    };
    const std::string title = options.title.value_or("Apps in " + folder.shown);
    if (options.out == kStandardStream) {
        printPage(title, folder, complain);
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
    const AppsBelow found = appsBelow(folder);
    Cage cage = cageFor(folder, found);
    // The process that reads the apps can write to the open page only. Putting that in place needs rights
    // to the whole folder, which this process keeps.
    const std::string told = inCage(cage, [&] {
        const std::size_t count = writePage(write, title, folder, found, complain);
        return fmt::format("{} {}", status, count);
    });
    std::size_t apps = 0;
    std::istringstream(told) >> status >> apps;
    transaction.commit();
    printReport(out, fmt::format("wrote {} with {} app{}\n", visible(out.shown), apps,
                                 apps == 1 ? "" : "s"));
    return status;
}

}  // namespace

Action declareGallery(CLI::App& command) {
    const auto options = std::make_shared<GalleryOptions>();
    command
        .add_option("DIR", options->folder, "The folder with the apps, also in folders below it")
        ->required()
        ->type_name("");
    command.add_option("-o,--output", options->out, "The page to write; \"-\" is standard output")
        ->required()
        ->type_name("OUT.html");
    command.add_option("--title", options->title, "The heading of the page")->type_name("TEXT");
    command.add_flag("--force", options->force,
                     "Replace OUT.html if it exists, unless it is an app");
    command.footer(
        "Writes one HTML page of all apps, with search and sort, that needs no network and no "
        "other\n"
        "file. It contains all screenshots of up to " +
        foundation::shownMebibytes(kMaxPictureBytes) +
        " each, and takes a third more space\n"
        "than they do. An app or folder that cannot be read is listed with the reason, and the "
        "exit\n"
        "status is 1. Files and folders whose names begin with a dot are left out.\n\n"
        "Example:\n"
        "  qzapp gallery apps -o apps.html --title \"Apps of the lab\"");
    return [options] { return gallery(*options); };
}

}  // namespace qzapp
