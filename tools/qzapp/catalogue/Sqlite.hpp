#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace qzapp {

class SqlConnection;

// Whether the journal of a database is a regular file of this user or the database's owner, or not
// there. Nobody else could take such a file away in a directory like /tmp, and put another one in
// its place.
bool isOwnJournal(const std::string& journal);

// A prepared statement. Values are bound by their number, from 1; columns are counted from 0. Bytes
// and texts are copied. All members throw Error about the database. It must not outlive its
// connection.
class SqlStatement {
public:
    SqlStatement& bind(int number, std::int64_t value);
    SqlStatement& bind(int number, std::string_view text);
    SqlStatement& bindBlob(int number, std::string_view bytes);
    // Binds NULL if there is no value.
    SqlStatement& bindOptional(int number, const std::optional<std::int64_t>& value);
    SqlStatement& bindOptional(int number, const std::optional<std::string>& text);

    // Advances to the next row; false at the end, after which the statement can be run again.
    bool step();
    // Runs a statement that returns no rows.
    void run();
    void reset() noexcept;

    // A column of the current row. A value of another type is converted: databases of strangers may
    // hold any type anywhere.
    std::int64_t integer(int column) const;
    std::string text(int column) const;
    std::optional<std::string> optionalText(int column) const;
    bool isNull(int column) const;

private:
    friend class SqlConnection;
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const noexcept;
    };
    SqlStatement(const SqlConnection& connection, sqlite3_stmt* statement)
        : connection_(&connection), statement_(statement) {}
    SqlStatement& checked(int result);

    const SqlConnection* connection_;
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

// A connection to an SQLite database that may come from a stranger. It loads no extensions and runs
// no view or trigger, calls only functions that have no effects, trusts no value in the file for an
// allocation, and keeps what is temporary in memory. All members throw Error about the database, in
// words for the user. Use it from one thread.
class SqlConnection {
public:
    enum class Mode {
        Read,    // changes no byte of any file
        Create,  // it is made if it does not exist
        Memory,  // a new one that is no file
    };

    // `bytes` is the name for the system, and `shown` what messages call the database.
    SqlConnection(const std::string& bytes, std::string shown, Mode mode);
    ~SqlConnection();
    SqlConnection(const SqlConnection&) = delete;
    SqlConnection& operator=(const SqlConnection&) = delete;

    SqlStatement prepare(std::string_view sql) const;
    // Runs any number of statements that return nothing.
    void execute(const std::string& sql) const;
    // The first column of the only row.
    std::int64_t integer(std::string_view sql) const;

    // Runs `work` as one transaction: all of what it writes is kept, or nothing. Waits some seconds
    // for another program that is writing.
    void inTransaction(const std::function<void()>& work) const;
    // Runs `work` so that it sees one state of the database, whatever others write meanwhile.
    void inSnapshot(const std::function<void()>& work) const;

    // Throws the Error for what the last call on this connection has returned.
    [[noreturn]] void fail(int result) const;

private:
    void harden() const;
    void run(const char* begin, const std::function<void()>& work) const;

    struct Close {
        void operator()(sqlite3* database) const noexcept;
    };
    std::string shown_;
    Mode mode_;
    std::unique_ptr<sqlite3, Close> database_;
};

}  // namespace qzapp
