#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "app/AppFolder.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"
#include "app/MetadataJson.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/catalogue/Catalogue.hpp"
#include "tools/qzapp/catalogue/IndexRun.hpp"
#include "tools/qzapp/catalogue/MergeRun.hpp"
#include "tools/qzapp/catalogue/Status.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

using foundation::shownCount;
using nlohmann::ordered_json;

struct IndexOptions {
    std::vector<std::string> folders;
    std::string catalogue;
    bool rescan = false;
    bool merge = false;
    bool status = false;
    bool json = false;
};

const char* nameOf(Made made) {
    if (made == Made::New) return "new";
    return made == Made::Rebuilt ? "rebuilt" : "found";
}

std::string countOf(std::int64_t count) {
    return shownCount(static_cast<std::uint64_t>(count));
}

ordered_json toJson(const FileName& catalogue, const IndexResult& result) {
    ordered_json unread = ordered_json::array();
    for (const Unlisted& each : result.unread)
        unread.push_back(failureJson(each.name, each.reason));
    return {{"catalogue", catalogue.shown}, {"made", nameOf(result.made)},
            {"apps", result.apps},          {"unreadable", result.unreadable},
            {"added", result.added},        {"changed", result.changed},
            {"removed", result.removed},    {"unread", std::move(unread)},
            {"unscaled", result.unscaled}};
}

std::string sheetOf(const FileName& catalogue, const IndexResult& result) {
    std::string text =
        fmt::format("{}: {} app{}; files: {} added, {} changed, {} removed\n",
                    visible(catalogue.shown), countOf(result.apps), result.apps == 1 ? "" : "s",
                    countOf(result.added), countOf(result.changed), countOf(result.removed));
    if (result.unreadable > 0) {
        text +=
            fmt::format("{} app{} cannot be read; \"qzapp find -d {} is:unreadable\" lists {}\n",
                        countOf(result.unreadable), result.unreadable == 1 ? "" : "s",
                        visible(catalogue.shown), result.unreadable == 1 ? "it" : "them");
    }
    return text;
}

// Refuses the name of an app, so that no catalogue gets one, and that of a folder.
FileName catalogueArgument(const std::string& value) {
    FileName file = fileArgument(value);
    if (value.ends_with('/')) {
        throw UsageError(file.shown, "is the name of a folder; name a file in it, such as apps.db");
    }
    const auto name = fl::i18n::to_lower(file.native());
    if (name.ends_with(kPackagedExtension) || name.ends_with(kTextExtension)) {
        throw UsageError(file.shown,
                         "is the name of an app; choose another for the catalogue, such as "
                         "apps.db");
    }
    return file;
}

int showStatus(const FileName& catalogue, bool asJson) {
    confineToCatalogue(catalogue);
    const CatalogueStatus status = statusOf(catalogue);
    print(asJson ? jsonOf(catalogue, status) : sheetOf(catalogue, status));
    return kDone;
}

ordered_json toJson(const FileName& catalogue, const FileName& other, const MergeResult& result) {
    return {{"catalogue", catalogue.shown}, {"merged", other.shown}, {"label", result.label},
            {"current", result.isCurrent},  {"taken", result.taken}, {"removed", result.removed}};
}

std::string sheetOf(const FileName& catalogue, const FileName& other, const MergeResult& result) {
    if (result.isCurrent) {
        return fmt::format("{}: nothing in {} is newer than what was merged before\n",
                           visible(catalogue.shown), visible(other.shown));
    }
    return fmt::format("{}: merged {} as \"{}\"; files: {} taken, {} removed\n",
                       visible(catalogue.shown), visible(other.shown), visible(result.label),
                       countOf(result.taken), countOf(result.removed));
}

void reportRebuilt(const FileName& catalogue, Made made) {
    if (made != Made::Rebuilt) return;
    report(catalogue.shown +
           ": was made by an older qzapp and has been made anew; if it held other folders or "
           "catalogues, "
           "index or merge them again");
}

int merge(const FileName& catalogue, const IndexOptions& options) {
    int status = kDone;
    for (const std::string& name : options.folders) {
        const FileName other = fileArgument(name);
        try {
            const MergeResult result = mergeCatalogue(catalogue, other);
            reportRebuilt(catalogue, result.made);
            printReport(catalogue, options.json ? jsonLine(toJson(catalogue, other, result))
                                                : sheetOf(catalogue, other, result));
        } catch (const OutputError&) {
            throw;
        } catch (const std::runtime_error& e) {  // also of the child that reads it
            report(e.what());
            status = kFailed;
        }
    }
    return status;
}

void requireSense(const IndexOptions& options) {
    if (options.status && (options.merge || options.rescan || !options.folders.empty()))
        throw UsageError("--status", "takes only a database; leave the rest out");
    if (options.merge && options.rescan)
        throw UsageError("--rescan", "cannot be given with --merge; leave one out");
    if (options.status || !options.folders.empty()) return;
    throw UsageError("index", options.merge ? "--merge needs the catalogues to be merged"
                                            : "DIR is required; see \"qzapp index --help\"");
}

int index(const IndexOptions& options) {
    requireSense(options);
    const FileName catalogue = catalogueArgument(options.catalogue);
    if (options.status) return showStatus(catalogue, options.json);
    if (options.merge) return merge(catalogue, options);
    const IndexResult result = indexFolders(catalogue, options.folders, options.rescan);
    for (const Unlisted& each : result.unread)
        report(each.name + ": " + each.reason);
    if (result.unscaled > 0) {
        report(fmt::format("{}: {} screenshot{} could not be scaled now; the next run tries again",
                           catalogue.shown, countOf(result.unscaled),
                           result.unscaled == 1 ? "" : "s"));
    }
    reportRebuilt(catalogue, result.made);
    printReport(catalogue,
                options.json ? jsonLine(toJson(catalogue, result)) : sheetOf(catalogue, result));
    return result.unread.empty() && result.unscaled == 0 ? kDone : kFailed;
}

}  // namespace

Action declareIndex(CLI::App& command) {
    const auto options = std::make_shared<IndexOptions>();
    command
        .add_option("DIR", options->folders,
                    "The folders with the apps, also in folders below them; with --merge, "
                    "the catalogues to be merged")
        ->type_name("");
    command
        .add_option("-d,--database", options->catalogue,
                    "The catalogue, an SQLite database; it is made if there is none")
        ->required()
        ->type_name("CATALOG.db");
    command.add_flag("--rescan", options->rescan,
                     "Read all files again, also those whose size, time and inode are as before");
    command.add_flag("--status", options->status,
                     "Say what the catalogue holds and whether it is whole, and change nothing");
    command.add_flag("--merge", options->merge,
                     "Take in what other catalogues hold, which may be of other machines");
    command.add_flag("--json", options->json, "Print JSON objects, each on one line");
    command.footer(
        "Keeps a catalogue of all apps below the folders: every metadata field, hashes, what "
        "\"qzapp\n"
        "check\" finds, and an index of all words for \"qzapp find\". A later run reads only the "
        "files\n"
        "that are new or have changed, and takes out those that went. Symbolic links, and files "
        "and\n"
        "folders whose names begin with a dot, are left out. An app that is damaged is recorded "
        "with\n"
        "the reason. If something could not be looked at, the exit status is 1, and the next run "
        "tries\n"
        "again. The catalogue may be removed and made again at any time.\n\n"
        "Examples:\n"
        "  qzapp index apps -d apps.db\n"
        "  qzapp index /srv/apps /home/shared -d /var/lib/apps.db --rescan\n"
        "  qzapp index --status -d apps.db\n"
        "  qzapp index --merge lab1.db lab2.db -d all.db");
    return [options] { return index(*options); };
}

}  // namespace qzapp
