#include "tools/qzapp/catalogue/Rows.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <span>
#include <string>
#include <utility>

#include "app/FieldValues.hpp"
#include "tools/qzapp/catalogue/Schema.hpp"

namespace qzapp {
namespace {

// The columns of `apps` behind the id, in the order in which they are read and written.
std::string columnsOfApps() {
    std::vector<std::string> names = {"File", "Form", "error", "sha256"};
    for (const Field field : textFields())
        names.emplace_back(nameOf(field));
    for (const char* name : {"screenshotFormat", "screenshotSha256", "screenshotBytes", "errors",
                             "warnings", "notes"}) {
        names.emplace_back(name);
    }
    return fmt::format("{}", fmt::join(names, ", "));
}

// The tables whose rows belong to an app, and the column that says to which.
std::vector<std::pair<std::string, std::string>> tablesOfApp() {
    std::vector<std::pair<std::string, std::string>> tables = {
        {"apps", "id"}, {"findings", "app"}, {"words", "rowid"}};
    for (const Field field : listFields())
        tables.emplace_back(nameOf(field), "app");
    return tables;
}

// What `again` is if only the picture is missing.
constexpr std::int64_t kAgainForPicture = 2;

std::string joined(const std::vector<std::string>& list) {
    return fmt::format("{}", fmt::join(list, "\n"));
}

// The name of the file without folders and extension.
std::string stemOf(const std::string& file) {
    const std::string name = file.substr(file.rfind('/') + 1);
    return name.substr(0, name.rfind('.'));
}

const std::string& textOf(const AppRow& app, Field field) {
    const auto place = std::ranges::find(textFields(), field) - textFields().begin();
    return app.texts.at(static_cast<std::size_t>(place));
}

}  // namespace

std::int64_t now() {
    using namespace std::chrono;
    return nanoseconds(system_clock::now().time_since_epoch()).count();
}

RowReader::RowReader(const SqlConnection& catalogue)
    : catalogue_(&catalogue),
      file_(catalogue.prepare("SELECT path, size, modified, inode, again FROM files WHERE id = ?")),
      app_(catalogue.prepare(fmt::format("SELECT {} FROM apps WHERE id = ?", columnsOfApps()))),
      findings_(catalogue.prepare("SELECT severity, rule, part, text, fix, count FROM findings "
                                  "WHERE app = ? ORDER BY position")),
      picture_(catalogue.prepare("SELECT mediaType, bytes, reason, width, height, originalWidth, "
                                 "originalHeight FROM pictures WHERE sha256 = ?")) {
    for (const Field field : listFields()) {
        lists_.push_back(catalogue.prepare(
            fmt::format("SELECT value FROM {} WHERE app = ? ORDER BY position", nameOf(field))));
    }
}

std::vector<KnownFile> RowReader::filesBelow(std::int64_t source, const std::string& folder) {
    // All names that begin with the folder and "/" are between these two.
    const std::string start = folder.ends_with('/') ? folder : folder + "/";
    std::string end = start;
    ++end.back();
    SqlStatement rows = catalogue_->prepare(
        "SELECT path, id, size, modified, inode, again FROM files NOT INDEXED "
        "WHERE source = ? AND path >= ? AND path < ?");
    rows.bind(1, source).bindBlob(2, start).bindBlob(3, end);
    std::vector<KnownFile> files;
    while (rows.step()) {
        files.push_back({rows.text(0),
                         rows.integer(1),
                         {rows.integer(2), rows.integer(3), rows.integer(4)},
                         rows.integer(5) != 0});
    }
    std::ranges::sort(files, {}, &KnownFile::path);
    return files;
}

std::vector<Source> RowReader::sources() {
    std::vector<Source> sources;
    SqlStatement rows =
        catalogue_->prepare("SELECT id, uuid, label, updated FROM sources ORDER BY id");
    while (rows.step())
        sources.push_back({rows.integer(0), rows.text(1), rows.text(2), rows.integer(3), {}});
    SqlStatement folders =
        catalogue_->prepare("SELECT path, indexed FROM folders WHERE source = ? ORDER BY path");
    for (Source& source : sources) {
        for (folders.bind(1, source.id); folders.step();)
            source.folders.push_back({folders.text(0), folders.integer(1)});
    }
    return sources;
}

std::vector<std::int64_t> RowReader::idsOf(std::int64_t source) {
    std::vector<std::int64_t> ids;
    SqlStatement rows = catalogue_->prepare("SELECT id FROM files WHERE source = ?");
    rows.bind(1, source);
    while (rows.step())
        ids.push_back(rows.integer(0));
    return ids;
}

std::optional<Entry> RowReader::entry(std::int64_t id) {
    Entry entry;
    file_.bind(1, id);
    if (!file_.step()) return std::nullopt;
    entry.path = file_.text(0);
    entry.stamp = {file_.integer(1), file_.integer(2), file_.integer(3)};
    entry.again = file_.integer(4) != 0;
    file_.reset();
    entry.app = app(id);
    return entry;
}

void RowReader::forEachEntry(const std::vector<std::int64_t>& ids,
                             const std::function<void(Entry&&)>& take,
                             const std::function<void()>& pause) {
    constexpr std::size_t kAtATime = 256;
    for (std::span left(ids); !left.empty();) {
        const auto some = left.first(std::min(kAtATime, left.size()));
        left = left.subspan(some.size());
        catalogue_->inSnapshot([&] {
            for (const std::int64_t id : some) {
                if (auto found = entry(id)) take(*std::move(found));
            }
        });
        pause();
    }
}

std::optional<PictureRow> RowReader::picture(const std::string& sha256) {
    picture_.bind(1, sha256);
    if (!picture_.step()) return std::nullopt;
    PictureRow row;
    row.sha256 = sha256;
    int column = 0;
    for (auto* text : {&row.mediaType, &row.bytes, &row.reason})
        *text = picture_.optionalText(column++);
    for (auto* number : {&row.width, &row.height, &row.originalWidth, &row.originalHeight})
        *number = picture_.integer(column++);
    picture_.reset();
    return row;
}

std::set<std::string> RowReader::knownPictures(bool orReason) {
    std::set<std::string> known;
    SqlStatement rows = catalogue_->prepare(
        "SELECT sha256 FROM pictures WHERE bytes IS NOT NULL OR ? ORDER BY sha256");
    rows.bind(1, std::int64_t{orReason});
    while (rows.step())
        known.insert(known.end(), rows.text(0));
    return known;
}

std::optional<AppRow> RowReader::app(std::int64_t id) {
    app_.bind(1, id);
    if (!app_.step()) return std::nullopt;
    AppRow app;
    int column = 0;
    app.file = app_.text(column++);
    for (auto* text : {&app.form, &app.error, &app.sha256})
        *text = app_.optionalText(column++);
    for (std::string& text : app.texts)
        text = app_.text(column++);
    for (auto* text : {&app.screenshotFormat, &app.screenshotSha256})
        *text = app_.optionalText(column++);
    for (auto* number : {&app.screenshotBytes, &app.errors, &app.warnings, &app.notes})
        *number = app_.integer(column++);
    app_.reset();
    for (std::size_t i = 0; i < kListFields; ++i) {
        for (lists_[i].bind(1, id); lists_[i].step();)
            app.lists.at(i).push_back(lists_[i].text(0));
    }
    for (findings_.bind(1, id); findings_.step();) {
        app.findings.push_back({findings_.text(0), findings_.text(1), findings_.text(2),
                                findings_.text(3), findings_.text(4), findings_.integer(5)});
    }
    return app;
}

RowWriter::RowWriter(const SqlConnection& catalogue)
    : catalogue_(&catalogue),
      find_(catalogue.prepare("SELECT id FROM files WHERE source = ? AND path = ?")),
      stamp_(catalogue.prepare("UPDATE files SET size = ?2, modified = ?3, inode = ?4, again = ?5 "
                               "WHERE id = ?1")),
      again_(catalogue.prepare("UPDATE files SET again = 1 WHERE id = ?")),
      file_(catalogue.prepare("INSERT INTO files (size, modified, inode, again, source, path) "
                              "VALUES (?, ?, ?, ?, ?, ?) RETURNING id")),
      app_(catalogue.prepare(fmt::format(
          "INSERT INTO apps (minimumOrder, releaseOrder, id, {}) "
          "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
          columnsOfApps()))),
      finding_(catalogue.prepare("INSERT INTO findings (app, position, severity, rule, part, text, "
                                 "fix, count) VALUES (?, ?, ?, ?, ?, ?, ?, ?)")),
      words_(catalogue.prepare(
          "INSERT INTO words (rowid, Name, Summary, Author, Description, RequiredProducts, "
          "UserComponents, ImageRelativePaths, Stem) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)")),
      picture_(catalogue.prepare(
          "INSERT OR REPLACE INTO pictures (sha256, mediaType, bytes, reason, width, height, "
          "originalWidth, originalHeight) VALUES (?, ?, ?, ?, ?, ?, ?, ?)")),
      findPicture_(catalogue.prepare("SELECT 1 FROM pictures WHERE sha256 = ?")) {
    for (const Field field : listFields()) {
        lists_.push_back(catalogue.prepare(
            fmt::format("INSERT INTO {} (app, position, value) VALUES (?, ?, ?)", nameOf(field))));
    }
    for (const auto& [table, column] : tablesOfApp()) {
        removals_.push_back(
            catalogue.prepare(fmt::format("DELETE FROM {} WHERE {} = ?", table, column)));
    }
}

void RowWriter::put(std::int64_t source, const Entry& entry) {
    std::int64_t id = 0;
    if (entry.app && entry.app->picture) putPicture(*entry.app->picture);
    std::int64_t again = entry.app && lacksPicture(*entry.app) ? kAgainForPicture : 0;
    if (entry.again) again = 1;
    find_.bind(1, source).bindBlob(2, entry.path);
    const bool isKnown = find_.step();
    if (isKnown) id = find_.integer(0);
    find_.reset();
    if (isKnown && entry.isUnread) {
        again_.bind(1, id).run();
        return;
    }
    if (isKnown) {
        removeContent(id);
        stamp_.bind(1, id).bind(2, entry.stamp.size).bind(3, entry.stamp.modified);
        stamp_.bind(4, entry.stamp.inode).bind(5, again).run();
    } else {
        file_.bind(1, entry.stamp.size).bind(2, entry.stamp.modified).bind(3, entry.stamp.inode);
        file_.bind(4, again).bind(5, source).bindBlob(6, entry.path);
        file_.step();
        id = file_.integer(0);
        file_.run();
    }
    if (entry.app) putApp(id, *entry.app);
}

void RowWriter::putPicture(const PictureRow& picture) {
    int column = 1;
    picture_.bind(column++, picture.sha256);
    picture_.bindOptional(column++, picture.mediaType);
    if (picture.bytes) {
        picture_.bindBlob(column++, *picture.bytes);
    } else {
        picture_.bindOptional(column++, std::optional<std::string>());
    }
    picture_.bindOptional(column++, picture.reason);
    for (const std::int64_t number :
         {picture.width, picture.height, picture.originalWidth, picture.originalHeight}) {
        picture_.bind(column++, number);
    }
    picture_.run();
}

bool RowWriter::lacksPicture(const AppRow& app) {
    if (!app.screenshotSha256) return false;
    findPicture_.bind(1, *app.screenshotSha256);
    const bool isThere = findPicture_.step();
    findPicture_.reset();
    return !isThere;
}

void RowWriter::settlePictures() {
    catalogue_->execute(fmt::format(
        "UPDATE files SET again = 0 WHERE again = {} AND id IN (SELECT id FROM apps WHERE "
        "screenshotSha256 IN (SELECT sha256 FROM pictures))",
        kAgainForPicture));
    catalogue_->execute(
        "DELETE FROM pictures WHERE sha256 NOT IN "
        "(SELECT screenshotSha256 FROM apps WHERE screenshotSha256 IS NOT NULL)");
}

std::int64_t RowWriter::countUnscaled() const {
    return catalogue_->integer(
        fmt::format("SELECT count(*) FROM files WHERE again = {} AND source = {}", kAgainForPicture,
                    kOwnSource));
}

void RowWriter::putApp(std::int64_t id, const AppRow& app) {
    int column = 1;
    app_.bindOptional(column++, releaseOrder(textOf(app, Field::MinimumSupportedKORVALRelease)));
    app_.bindOptional(column++, releaseOrder(textOf(app, Field::KORVALRelease)));
    app_.bind(column++, id);
    app_.bind(column++, app.file);
    for (const auto* text : {&app.form, &app.error, &app.sha256})
        app_.bindOptional(column++, *text);
    for (const std::string& text : app.texts)
        app_.bind(column++, text);
    for (const auto* text : {&app.screenshotFormat, &app.screenshotSha256})
        app_.bindOptional(column++, *text);
    for (const std::int64_t number : {app.screenshotBytes, app.errors, app.warnings, app.notes})
        app_.bind(column++, number);
    app_.run();
    putLists(id, app);
    putFindings(id, app);
    putWords(id, app);
}

void RowWriter::putLists(std::int64_t id, const AppRow& app) {
    for (std::size_t i = 0; i < kListFields; ++i) {
        std::int64_t position = 0;
        for (const std::string& value : app.lists.at(i))
            lists_[i].bind(1, id).bind(2, position++).bind(3, value).run();
    }
}

void RowWriter::putFindings(std::int64_t id, const AppRow& app) {
    std::int64_t position = 0;
    for (const FoundRow& row : app.findings) {
        finding_.bind(1, id).bind(2, position++).bind(3, row.severity).bind(4, row.rule);
        finding_.bind(5, row.part).bind(6, row.text).bind(7, row.fix).bind(8, row.count).run();
    }
}

void RowWriter::putWords(std::int64_t id, const AppRow& app) {
    int column = 1;
    words_.bind(column++, id);
    for (const Field field : {Field::Name, Field::Summary, Field::Author, Field::Description})
        words_.bind(column++, textOf(app, field));
    for (const auto& list : app.lists)
        words_.bind(column++, joined(list));
    words_.bind(column++, stemOf(app.file)).run();
}

void RowWriter::removeContent(std::int64_t id) {
    for (SqlStatement& removal : removals_)
        removal.bind(1, id).run();
}

void RowWriter::remove(std::int64_t id) {
    removeContent(id);
    catalogue_->prepare("DELETE FROM files WHERE id = ?").bind(1, id).run();
}

void RowWriter::removeIfAsKnown(const KnownFile& known) {
    SqlStatement same = catalogue_->prepare(
        "SELECT 1 FROM files WHERE id = ? AND path = ? AND size = ? AND modified = ? AND inode = "
        "?");
    same.bind(1, known.id).bindBlob(2, known.path).bind(3, known.stamp.size);
    same.bind(4, known.stamp.modified).bind(5, known.stamp.inode);
    const bool isSame = same.step();
    same.reset();
    if (isSame) remove(known.id);
}

std::int64_t RowWriter::putSource(const std::string& uuid, const std::string& label) {
    SqlStatement put = catalogue_->prepare(
        "INSERT INTO sources (uuid, label, updated) VALUES (?, ?, 0) "
        "ON CONFLICT (uuid) DO UPDATE SET label = excluded.label RETURNING id");
    put.bind(1, uuid).bind(2, label);
    put.step();
    const std::int64_t id = put.integer(0);
    put.run();
    return id;
}

void RowWriter::putFolder(std::int64_t source, const IndexedFolder& folder) {
    SqlStatement put = catalogue_->prepare(
        "INSERT INTO folders (source, path, indexed) VALUES (?, ?, ?) "
        "ON CONFLICT (source, path) DO UPDATE SET indexed = excluded.indexed");
    put.bind(1, source).bindBlob(2, folder.path).bind(3, folder.indexed).run();
}

void RowWriter::removeFolders(std::int64_t source) {
    catalogue_->prepare("DELETE FROM folders WHERE source = ?").bind(1, source).run();
}

void RowWriter::setUpdated(std::int64_t source, std::int64_t time) {
    catalogue_->prepare("UPDATE sources SET updated = ? WHERE id = ?")
        .bind(1, time)
        .bind(2, source)
        .run();
}

}  // namespace qzapp
