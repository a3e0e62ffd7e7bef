#include "tools/qzapp/catalogue/Sqlite.hpp"

#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <new>
#include <system_error>
#include <utility>

#include "app/Error.hpp"

namespace qzapp {
namespace {

constexpr int kWaitMilliseconds = 10'000;

// The largest text, blob or row, and the longest statement. What is longer in a file is an error.
constexpr int kMostBytes = 64 << 20;
constexpr int kMostSql = 1 << 20;

// The functions that a statement of ours calls, or that FTS5 calls for us.
constexpr std::array<std::string_view, 12> kFunctions = {"count", "sum",   "max",  "coalesce",
                                                         "like",  "match", "glob", "total",
                                                         "quote", "hex",   "min",  "length"};

bool isOf(std::string_view name, std::string_view start) {
    return name.starts_with(start);
}

// Says which actions a statement may consist of, when it is compiled. `within` names a view or a
// trigger that brought the action in: a database of a stranger may hold some, and none is run.
int authorize(void*, int action, const char* first, const char* second, const char*,
              const char* within) {
    if (within != nullptr) return SQLITE_DENY;
    switch (action) {
        case SQLITE_ATTACH:
        case SQLITE_DETACH:
        case SQLITE_CREATE_TRIGGER:
        case SQLITE_CREATE_TEMP_TRIGGER:
        case SQLITE_CREATE_VIEW:
        case SQLITE_CREATE_TEMP_VIEW:
            return SQLITE_DENY;
        case SQLITE_CREATE_VTABLE:
            return second != nullptr && std::string_view(second) == "fts5" ? SQLITE_OK
                                                                           : SQLITE_DENY;
        case SQLITE_FUNCTION:
            return second != nullptr && std::ranges::find(kFunctions, std::string_view(second)) !=
                                            kFunctions.end()
                       ? SQLITE_OK
                       : SQLITE_DENY;
        case SQLITE_READ:
            // FTS5 and the tables of the schema itself are all of the virtual tables.
            return first != nullptr && isOf(first, "pragma_") ? SQLITE_DENY : SQLITE_OK;
        default:
            return SQLITE_OK;
    }
}

std::string whyFailed(sqlite3* database, int result, bool mayWrite) {
    const int extended = sqlite3_extended_errcode(database);
    const std::string system =
        std::error_code(sqlite3_system_errno(database), std::generic_category()).message();
    switch (result & 0xFF) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return fmt::format(
                "another program is {} it and has not finished within {} seconds; try again when "
                "it has",
                mayWrite ? "reading or writing" : "writing to", kWaitMilliseconds / 1000);
        case SQLITE_FULL:
            return "there is no room for it on the disk; what was recorded before is kept; make "
                   "room and run this again";
        case SQLITE_READONLY:
            if (!mayWrite || extended == SQLITE_READONLY_ROLLBACK)
                return "a run of \"qzapp index\" that wrote to it was ended; run it again, which "
                       "restores the database";
            return "may not be written to; check the permissions of the file and its folder";
        case SQLITE_CANTOPEN:
            if (!mayWrite) {
                return fmt::format(
                    "cannot be opened, or a run of \"qzapp index\" that wrote to it was ended "
                    "({}); check its permissions, and run \"qzapp index\" again, which restores it",
                    system);
            }
            // SQLite tries several ways, so that the system's last reason says nothing.
            return "it, or the journal beside it, cannot be made or opened; check the folder, and "
                   "the permissions of both";
        case SQLITE_IOERR:
            return fmt::format("cannot be read or written ({}); check the disk", system);
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return fmt::format("is damaged ({}); remove it, and make it again with \"qzapp index\"",
                               sqlite3_errmsg(database));
        case SQLITE_TOOBIG:
            return "holds a value that is larger than any of a catalogue; remove it, and make it "
                   "again with \"qzapp index\"";
        case SQLITE_AUTH:
            return "holds SQL that qzapp does not run; remove it, and make it again with \"qzapp "
                   "index\"";
        default:
            return sqlite3_errmsg(database);
    }
}

int flagsFor(SqlConnection::Mode mode) {
    return mode == SqlConnection::Mode::Read
               ? SQLITE_OPEN_READONLY
               : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOFOLLOW;
}

constexpr std::string_view kJournalEnd = "-journal";

// SQLite looks for a journal at the start of each transaction, plays it back and then removes the
// file that it names. So nothing is opened but databases and journals of our own, and nothing else
// is removed.
int openOwn(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
    file->pMethods = nullptr;
    if (flags & (SQLITE_OPEN_SUPER_JOURNAL | SQLITE_OPEN_WAL)) return SQLITE_CANTOPEN;
    sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
    if (!(flags & SQLITE_OPEN_MAIN_JOURNAL))
        return system->xOpen(system, name, file, flags, outFlags);
    if (!isOwnJournal(name)) return SQLITE_CANTOPEN;
    const int opened = system->xOpen(system, name, file, flags, outFlags);
    if (opened != SQLITE_OK || isOwnJournal(name)) return opened;
    if (file->pMethods != nullptr) file->pMethods->xClose(file);
    file->pMethods = nullptr;
    return SQLITE_CANTOPEN;
}

int removeOwn(sqlite3_vfs*, const char* name, int sync) {
    sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
    const bool isOwn = std::string_view(name).ends_with(kJournalEnd) && isOwnJournal(name);
    return isOwn ? system->xDelete(system, name, sync) : SQLITE_IOERR_DELETE;
}

// The name under which SQLite knows the file system with these two functions.
const char* ownFiles() {
    static sqlite3_vfs files = [] {
        sqlite3_vfs own = *sqlite3_vfs_find(nullptr);
        own.zName = "qzapp";
        own.xOpen = openOwn;
        own.xDelete = removeOwn;
        return own;
    }();
    // If this fails, SQLite knows no such file system, and no database opens.
    static const int registered = sqlite3_vfs_register(&files, 0);
    static_cast<void>(registered);
    return files.zName;
}

// A name that SQLite takes for nothing but a name: not for "file:..." or ":memory:".
std::string plainName(const std::string& bytes) {
    return bytes.starts_with('/') ? bytes : "./" + bytes;
}

}  // namespace

bool isOwnJournal(const std::string& journal) {
    struct stat found {
    }, database{};
    if (::lstat(journal.c_str(), &found) != 0) return errno == ENOENT;
    const std::string name = journal.substr(0, journal.size() - kJournalEnd.size());
    const bool isThere = ::stat(name.c_str(), &database) == 0;
    const bool isOwn = found.st_uid == ::geteuid() || (isThere && found.st_uid == database.st_uid);
    return isOwn && S_ISREG(found.st_mode);
}

void SqlStatement::Finalize::operator()(sqlite3_stmt* statement) const noexcept {
    sqlite3_finalize(statement);
}

SqlStatement& SqlStatement::checked(int result) {
    if (result != SQLITE_OK) connection_->fail(result);
    return *this;
}

SqlStatement& SqlStatement::bind(int number, std::int64_t value) {
    return checked(sqlite3_bind_int64(statement_.get(), number, value));
}

SqlStatement& SqlStatement::bind(int number, std::string_view text) {
    return checked(sqlite3_bind_text64(statement_.get(), number, text.data(), text.size(),
                                       SQLITE_TRANSIENT, SQLITE_UTF8));
}

SqlStatement& SqlStatement::bindBlob(int number, std::string_view bytes) {
    return checked(sqlite3_bind_blob64(statement_.get(), number, bytes.data(), bytes.size(),
                                       SQLITE_TRANSIENT));
}

SqlStatement& SqlStatement::bindOptional(int number, const std::optional<std::int64_t>& value) {
    return value ? bind(number, *value) : checked(sqlite3_bind_null(statement_.get(), number));
}

SqlStatement& SqlStatement::bindOptional(int number, const std::optional<std::string>& text) {
    return text ? bind(number, std::string_view(*text))
                : checked(sqlite3_bind_null(statement_.get(), number));
}

bool SqlStatement::step() {
    const int result = sqlite3_step(statement_.get());
    if (result == SQLITE_ROW) return true;
    // The code is kept in the connection, and the reset gives back what the statement holds.
    const int reset = sqlite3_reset(statement_.get());
    if (result != SQLITE_DONE) connection_->fail(reset == SQLITE_OK ? result : reset);
    return false;
}

void SqlStatement::run() {
    while (step()) {
    }
}

void SqlStatement::reset() noexcept {
    sqlite3_reset(statement_.get());
}

std::int64_t SqlStatement::integer(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

std::string SqlStatement::text(int column) const {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_.get(), column));
    if (bytes == nullptr) return {};
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

std::optional<std::string> SqlStatement::optionalText(int column) const {
    if (isNull(column)) return std::nullopt;
    return text(column);
}

bool SqlStatement::isNull(int column) const {
    return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

void SqlConnection::Close::operator()(sqlite3* database) const noexcept {
    sqlite3_close_v2(database);
}

SqlConnection::SqlConnection(const std::string& bytes, std::string shown, Mode mode)
    : shown_(std::move(shown)), mode_(mode) {
    sqlite3* opened = nullptr;
    const std::string name = mode == Mode::Memory ? ":memory:" : plainName(bytes);
    const int result =
        sqlite3_open_v2(name.c_str(), &opened, flagsFor(mode) | SQLITE_OPEN_NOMUTEX, ownFiles());
    database_.reset(opened);
    if (result != SQLITE_OK) fail(result);
    harden();
}

SqlConnection::~SqlConnection() = default;

void SqlConnection::harden() const {
    sqlite3* const database = database_.get();
    sqlite3_extended_result_codes(database, 1);
    sqlite3_busy_timeout(database, kWaitMilliseconds);
    sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    for (const int off :
         {SQLITE_DBCONFIG_TRUSTED_SCHEMA, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION,
          SQLITE_DBCONFIG_ENABLE_TRIGGER, SQLITE_DBCONFIG_ENABLE_VIEW,
          SQLITE_DBCONFIG_WRITABLE_SCHEMA, SQLITE_DBCONFIG_DQS_DDL, SQLITE_DBCONFIG_DQS_DML}) {
        sqlite3_db_config(database, off, 0, nullptr);
    }
    const std::pair<int, int> limits[] = {
        {SQLITE_LIMIT_LENGTH, kMostBytes},
        {SQLITE_LIMIT_SQL_LENGTH, kMostSql},
        {SQLITE_LIMIT_ATTACHED, 0},
        {SQLITE_LIMIT_TRIGGER_DEPTH, 1},
        {SQLITE_LIMIT_WORKER_THREADS, 0},
        {SQLITE_LIMIT_COLUMN, 100},
        {SQLITE_LIMIT_COMPOUND_SELECT, 50},
        {SQLITE_LIMIT_FUNCTION_ARG, 20},
        {SQLITE_LIMIT_LIKE_PATTERN_LENGTH, 10'000},
    };
    for (const auto& [limit, value] : limits)
        sqlite3_limit(database, limit, value);
    // What follows reads the file for the first time, with all of the above in force.
    execute("PRAGMA cell_size_check = ON; PRAGMA temp_store = MEMORY; PRAGMA mmap_size = 0");
    // Or a power failure could bring back the journal of a run that has ended, and with it the
    // database as it was before.
    execute("PRAGMA synchronous = EXTRA");
    sqlite3_set_authorizer(database, authorize, nullptr);
}

SqlStatement SqlConnection::prepare(std::string_view sql) const {
    sqlite3_stmt* statement = nullptr;
    const int result = sqlite3_prepare_v2(database_.get(), sql.data(), static_cast<int>(sql.size()),
                                          &statement, nullptr);
    SqlStatement prepared(*this, statement);
    if (result != SQLITE_OK) fail(result);
    return prepared;
}

void SqlConnection::execute(const std::string& sql) const {
    const int result = sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) fail(result);
}

std::int64_t SqlConnection::integer(std::string_view sql) const {
    SqlStatement statement = prepare(sql);
    return statement.step() ? statement.integer(0) : 0;
}

void SqlConnection::run(const char* begin, const std::function<void()>& work) const {
    execute(begin);
    try {
        work();
        execute("COMMIT");
    } catch (...) {
        // Some errors have rolled back already; then this fails, and nothing is left to do.
        sqlite3_exec(database_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
}

void SqlConnection::inTransaction(const std::function<void()>& work) const {
    run("BEGIN IMMEDIATE", work);
}

void SqlConnection::inSnapshot(const std::function<void()>& work) const {
    run("BEGIN", work);
}

void SqlConnection::fail(int result) const {
    if ((result & 0xFF) == SQLITE_NOMEM || !database_) throw std::bad_alloc();
    const bool isPassing = (result & 0xFF) == SQLITE_BUSY;
    throw Error(shown_, whyFailed(database_.get(), result, mode_ != Mode::Read),
                isPassing ? Error::Cause::Passing : Error::Cause::Lasting);
}

}  // namespace qzapp
