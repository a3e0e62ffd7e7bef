#include <fmt/format.h>
#include <fmt/ranges.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <fl/i18n.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/Error.hpp"
#include "app/FileName.hpp"
#include "app/MetadataJson.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/catalogue/Catalogue.hpp"
#include "tools/qzapp/catalogue/Entry.hpp"
#include "tools/qzapp/catalogue/Query.hpp"
#include "tools/qzapp/catalogue/QuerySql.hpp"
#include "tools/qzapp/catalogue/Rows.hpp"
#include "tools/qzapp/catalogue/Sqlite.hpp"
#include "tools/qzapp/catalogue/Status.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/ForEachApp.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/verbs/InfoTable.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t kPrintedBytes = std::size_t{64} << 10;

struct FindOptions {
    std::vector<std::string> query;
    std::string catalogue;
    bool json = false;
    TableOptions table;
    bool count = false;
    bool zeros = false;
    std::optional<unsigned> most;
};

ordered_json orNull(const std::optional<std::string>& text) {
    return text ? ordered_json(*text) : ordered_json(nullptr);
}

ordered_json screenshotJson(const AppRow& app) {
    if (!app.screenshotFormat) return nullptr;
    return {{"format", *app.screenshotFormat},
            {"bytes", app.screenshotBytes},
            {"sha256", orNull(app.screenshotSha256)}};
}

ordered_json toJson(const Entry& entry) {
    const AppRow& app = *entry.app;
    ordered_json findings = ordered_json::array();
    for (const FoundRow& row : app.findings) {
        findings.push_back({{"rule", row.rule},
                            {"severity", row.severity},
                            {"part", row.part},
                            {"text", row.text},
                            {"fix", row.fix},
                            {"count", row.count}});
    }
    return {{"file", app.file},
            {"form", orNull(app.form)},
            {"size", entry.stamp.size},
            {"modified", timeText(entry.stamp.modified)},
            {"sha256", orNull(app.sha256)},
            {"metadata", app.error ? ordered_json(nullptr) : qzapp::toJson(recordOf(app))},
            {"screenshot", screenshotJson(app)},
            {"findings", std::move(findings)},
            {"error", orNull(app.error)}};
}

// How the apps that were found are printed.
class FoundApps {
public:
    explicit FoundApps(const FindOptions& options) : options_(&options) {
        if (options.table.isWanted()) table_.emplace(options.table.columns);
    }

    std::string textOf(const Entry& entry) const {
        const AppRow& app = *entry.app;
        if (options_->json) return jsonLine(toJson(entry));
        const auto bytes =
            static_cast<std::uint64_t>(std::max<std::int64_t>(app.screenshotBytes, 0));
        return table_->rowOf(
            {app.file,
             app.form.value_or(""),
             recordOf(app),
             {fl::i18n::utf8_to_ustring(app.screenshotFormat.value_or("")), bytes}});
    }

    void show(std::string text) {
        if (table_) {
            table_->show(Answer{std::move(text)});
        } else {
            print(text);
        }
    }

    void end() {
        if (table_) table_->end();
    }

private:
    const FindOptions* options_;
    std::optional<InfoTable> table_;
};

// Holds no lock on the database while it prints: a pager may wait for long.
void printEach(const SqlConnection& catalogue, const std::vector<std::int64_t>& ids,
               FoundApps& found) {
    std::vector<std::string> texts;
    const auto take = [&](const Entry& entry) {
        if (entry.app) texts.push_back(found.textOf(entry));
    };
    RowReader(catalogue).forEachEntry(ids, take, [&] {
        for (std::string& text : texts)
            found.show(std::move(text));
        texts.clear();
    });
    found.end();
}

// Calls `take` with each row. It must not print: others wait for the lock meanwhile.
void forEachRow(const SqlConnection& catalogue, const Sql& sql,
                const std::function<void(const SqlStatement&)>& take) {
    SqlStatement rows = sql.prepareFor(catalogue);
    while (rows.step())
        take(rows);
}

// Prints the names of the files, which need nothing else of the apps.
void printNames(const FileName& file, const SqlConnection& catalogue, const Sql& sql, bool zeros) {
    std::vector<std::string> names;
    forEachRow(catalogue, sql, [&](const SqlStatement& row) { names.push_back(row.text(0)); });
    std::string text;
    for (const std::string& name : names) {
        // What the names are handed to may take others for options, and no run makes them.
        if (zeros && !isAbsolutePath(name)) {
            throw Error(file.shown,
                        fmt::format("holds the path \"{}\", and no catalogue does; make it again "
                                    "with \"qzapp index\"",
                                    visible(name)));
        }
        text += zeros ? name + '\0' : visible(name) + "\n";
        if (text.size() < kPrintedBytes) continue;
        print(text);
        text.clear();
    }
    print(text);
}

void requireSense(const FindOptions& options) {
    const int kinds = options.json + options.count + options.zeros + options.table.isWanted();
    if (kinds > 1) {
        throw UsageError("find",
                         "give one of --json, --table (or --columns), --count and --null; leave "
                         "the others out");
    }
    if (options.count && options.most)
        throw UsageError("--limit", "cannot be given with --count; leave one out");
}

int find(const FindOptions& options) {
    requireSense(options);
    const std::string query = fmt::format("{}", fmt::join(options.query, " "));
    const QueryNode node = parseQuery(query);
    const bool isNamesOnly = !options.json && !options.table.isWanted();
    Selected what = Selected::Id;
    if (isNamesOnly) what = options.zeros ? Selected::Path : Selected::File;
    Sql sql = options.count ? selectCount(query, node) : selectApps(query, node, what);
    if (options.most) sql += Sql{" LIMIT ?", {std::int64_t{*options.most}}};
    FoundApps found(options);
    const FileName file = fileArgument(options.catalogue);
    confineToCatalogue(file);
    const auto catalogue = openCatalogue(file);
    if (options.count) {
        std::int64_t apps = 0;
        forEachRow(*catalogue, sql, [&](const SqlStatement& row) { apps = row.integer(0); });
        print(fmt::format("{}\n", apps));
    } else if (isNamesOnly) {
        printNames(file, *catalogue, sql, options.zeros);
    } else {
        std::vector<std::int64_t> ids;
        forEachRow(*catalogue, sql,
                   [&](const SqlStatement& row) { ids.push_back(row.integer(0)); });
        printEach(*catalogue, ids, found);
    }
    return kDone;
}

std::string fieldList() {
    return fmt::format("{}", fmt::join(queryFieldNames(), ", "));
}

}  // namespace

Action declareFind(CLI::App& command) {
    const auto options = std::make_shared<FindOptions>();
    command
        .add_option("QUERY", options->query,
                    "What to look for; every app if it is left out. Put it between single quotes")
        ->type_name("");
    command
        .add_option("-d,--database", options->catalogue,
                    "The catalogue that \"qzapp index\" has made")
        ->required()
        ->type_name("CATALOG.db");
    command.add_flag("--json", options->json, "Print one JSON object per app, each on one line");
    declareTable(command, options->table);
    command.add_flag("--count", options->count, "Print only how many apps there are");
    command.add_flag("-0,--null", options->zeros,
                     "Print names as they are, each with a zero byte at its end, for xargs -0");
    command.add_option("--limit", options->most, "Print at most N apps, the first ones")
        ->type_name("N")
        ->check(numberUpTo(std::numeric_limits<unsigned>::max()));
    command.footer(
        "Prints the files of the apps that meet QUERY: first those with one of its words in the "
        "name,\n"
        "then in the summary, then the rest. Several terms must all be met, unless OR stands "
        "between\n"
        "them; - or NOT before a term, or before several in parentheses, excludes:\n"
        "  heat, heat*, \"heat flow\"   Words anywhere: whole, by their start, as a phrase\n"
        "  author:lindqvist           Words in a field\n"
        "  release:>=R2024a           A comparison, also of minimum, size (20k) and modified "
        "(2026-11)\n"
        "  uuid:5b1c*                 The whole of any other field, or its start\n"
        "  has:screenshot             Also errors, warnings, notes, and metadata fields\n"
        "  is:unreadable              Also packaged and text\n"
        "  duplicate:uuid             Another app has the same; also hash\n"
        "\n"
        "Fields: " +
        fieldList() +
        ".\n"
        "\n"
        "Words are found whatever their case and accents. The exit status is 0 also if there is no "
        "such app.\n"
        "The catalogue is never changed, and may come from a stranger.\n\n"
        "Examples:\n"
        "  qzapp find -d apps.db 'heat author:lindqvist release:>=R2024a'\n"
        "  qzapp find -d apps.db --table 'product:\"Signal*\" NOT has:screenshot'\n"
        "  qzapp find -d apps.db -0 has:errors | xargs -0 qzapp check");
    return [options] { return find(*options); };
}

}  // namespace qzapp
