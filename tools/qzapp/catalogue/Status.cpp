#include "tools/qzapp/catalogue/Status.hpp"

#include <fmt/format.h>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>
#include <nlohmann/json.hpp>

#include <chrono>
#include <string_view>
#include <utility>

#include "app/InputFiles.hpp"
#include "app/MetadataJson.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/catalogue/Catalogue.hpp"
#include "tools/qzapp/catalogue/Query.hpp"
#include "tools/qzapp/catalogue/QuerySql.hpp"
#include "tools/qzapp/catalogue/Rows.hpp"
#include "tools/qzapp/catalogue/Schema.hpp"
#include "tools/qzapp/catalogue/Sqlite.hpp"

namespace qzapp {
namespace {

using nlohmann::ordered_json;

// A number of apps: its key as JSON, its line for people, and the query that finds them.
struct Count {
    std::int64_t CatalogueStatus::*value;
    const char* key;
    const char* line;
    const char* query;
};

constexpr Count kCounts[] = {
    {&CatalogueStatus::apps, "apps", "apps", ""},
    {&CatalogueStatus::packaged, "packaged", "packaged", "is:packaged"},
    {&CatalogueStatus::text, "text", "text", "is:text"},
    {&CatalogueStatus::unreadable, "unreadable", "cannot be read", "is:unreadable"},
    {&CatalogueStatus::withErrors, "withErrors", "with errors", "has:errors"},
    {&CatalogueStatus::withWarnings, "withWarnings", "with warnings", "has:warnings"},
    {&CatalogueStatus::withoutScreenshot, "withoutScreenshot", "without a screenshot",
     "NOT has:screenshot"},
    {&CatalogueStatus::duplicateUuids, "duplicateUuids", "share their UUID", "duplicate:uuid"},
    {&CatalogueStatus::duplicateFiles, "duplicateFiles", "share all their bytes", "duplicate:hash"},
};

std::int64_t countOf(const SqlConnection& catalogue, const char* query) {
    SqlStatement count = selectCount(query, parseQuery(query)).prepareFor(catalogue);
    return count.step() ? count.integer(0) : 0;
}

std::string shownPath(const std::string& bytes) {
    return fl::i18n::to_display(fl::i18n::utf8_to_ustring(bytes));
}

std::string nameFor(const Source& source) {
    return source.id == kOwnSource ? "" : source.label + ": ";
}

ordered_json toJson(const Source& source) {
    ordered_json folders = ordered_json::array();
    for (const IndexedFolder& folder : source.folders)
        folders.push_back(
            {{"path", shownPath(folder.path)}, {"indexed", timeText(folder.indexed)}});
    return {{"label", source.id == kOwnSource ? ordered_json(nullptr) : ordered_json(source.label)},
            {"uuid", source.uuid},
            {"updated", timeText(source.updated)},
            {"folders", std::move(folders)}};
}

}  // namespace

std::string timeText(std::int64_t nanoseconds) {
    using namespace std::chrono;
    const sys_seconds time{floor<seconds>(std::chrono::nanoseconds(nanoseconds))};
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                       clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

CatalogueStatus statusOf(const FileName& file) {
    CatalogueStatus status;
    status.bytes = sizeOf(file);
    const auto catalogue = openCatalogue(file);
    catalogue->inSnapshot([&] {
        requireWhole(file, *catalogue);
        status.schema = catalogue->integer("PRAGMA user_version");
        for (const Count& count : kCounts)
            status.*count.value = countOf(*catalogue, count.query);
        status.sources = RowReader(*catalogue).sources();
    });
    return status;
}

std::string sheetOf(const FileName& catalogue, const CatalogueStatus& status) {
    std::string text = fmt::format("{}: whole, {}, schema {}\n", visible(catalogue.shown),
                                   byteCount(status.bytes), status.schema);
    for (const Count& count : kCounts) {
        const std::string number =
            foundation::shownCount(static_cast<std::uint64_t>(status.*count.value));
        const std::string_view query = count.query;
        std::string line = fmt::format("{:>9} {:<21} {}", number, count.line, query);
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    for (const Source& source : status.sources) {
        for (const IndexedFolder& folder : source.folders) {
            text += fmt::format("{}  {}{}\n", timeText(folder.indexed), visible(nameFor(source)),
                                visible(shownPath(folder.path)));
        }
    }
    return text;
}

std::string jsonOf(const FileName& catalogue, const CatalogueStatus& status) {
    ordered_json object = {
        {"catalogue", catalogue.shown}, {"bytes", status.bytes}, {"schema", status.schema}};
    for (const Count& count : kCounts)
        object[count.key] = status.*count.value;
    object["sources"] = ordered_json::array();
    for (const Source& source : status.sources)
        object["sources"].push_back(toJson(source));
    return jsonLine(object);
}

}  // namespace qzapp
