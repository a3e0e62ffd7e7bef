#include <fmt/format.h>
#include <CLI/Option.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/qzapp/AppFolder.hpp"
#include "tools/qzapp/Arguments.hpp"
#include "tools/qzapp/Display.hpp"
#include "tools/qzapp/Errors.hpp"
#include "tools/qzapp/Files.hpp"
#include "tools/qzapp/Forms.hpp"
#include "tools/qzapp/GalleryPage.hpp"
#include "tools/qzapp/Output.hpp"
#include "tools/qzapp/Progress.hpp"
#include "tools/qzapp/StandardInput.hpp"
#include "tools/qzapp/Transaction.hpp"
#include "tools/qzapp/Verbs.hpp"

namespace qzapp {
namespace {

struct GalleryOptions {
    std::string folder;
    std::string out;
    std::optional<std::string> title;
    bool force = false;
};

using Write = std::function<void(std::string_view)>;

std::string cardOf(const std::string& name, const std::string& shown, const Complain& complain) {
    try {
        const FileName file = fileArgument(name);
        const auto reader = openApp(file);
        return about(file, [&] {
            return appCard(shown, reader->readMetadata(), readScreenshot(file, *reader));
        });
    } catch (const Error& e) {
        complain(e.what());
        return failedCard(shown, e.text());
    }
}

// One app at a time, since all of them may not fit into memory.
void writePage(const Write& write, const std::string& title, const FileName& folder,
               const std::vector<std::string>& apps, const Complain& complain) {
    const PageFrame frame = pageFrame(title, apps.size());
    const std::size_t prefix = folder.bytes().size() + (folder.bytes().ends_with('/') ? 0 : 1);
    std::atomic<std::uint64_t> done = 0;
    const Progress progress(apps.size(), done);
    write(frame.head);
    for (const std::string& app : apps) {
        write(cardOf(app, app.substr(prefix), complain));
        ++done;
    }
    write(frame.tail);
}

int gallery(const GalleryOptions& options) {
    const FileName folder = fileArgument(options.folder);
    if (!isFolder(options.folder))
        throw Error(folder.shown, "is no folder; name the one with the apps");
    int status = kDone;
    const auto complain = [&](const std::string& text) {
        report(text);
        status = kFailed;
    };
    const auto apps = appsBelow(folder, complain);
    const std::string title = options.title.value_or("Apps in " + folder.shown);
    if (options.out == kStandardStream) {
        writePage(print, title, folder, apps, complain);
        return status;
    }
    const FileName out = fileArgument(options.out);
    requireAbsent(out, options.force);
    Transaction transaction(out, Transaction::Start::Empty);
    writePage([&](std::string_view text) { transaction.append(text); }, title, folder, apps,
              complain);
    transaction.commit();
    print(fmt::format("wrote {} with {} apps\n", visible(out.shown), apps.size()));
    return status;
}

}  // namespace

Action declareGallery(CLI::App& command) {
    const auto options = std::make_shared<GalleryOptions>();
    command
        .add_option("DIR", options->folder, "The folder with the apps; those below it count too")
        ->required()
        ->type_name("");
    command.add_option("-o,--output", options->out, "The page to make; \"-\" is standard output")
        ->required()
        ->type_name("OUT.html");
    command.add_option("--title", options->title, "What stands above the apps")->type_name("TEXT");
    command.add_flag("--force", options->force, "Replace OUT.html if it exists");
    command.footer(
        "Makes one page of all apps, with search and sort, that needs no network and no other\n"
        "file. Screenshots go in as they are, up to 4 MiB each, so the page is a third larger "
        "than\n"
        "all of them. An app that cannot be read appears with the reason; the exit status is then\n"
        "1. Folders and files whose names start with a dot are left out.\n\n"
        "Example:\n"
        "  qzapp gallery apps -o apps.html --title \"Apps of the lab\"");
    return [options] { return gallery(*options); };
}

}  // namespace qzapp
