#pragma once

// Small owners for the SQLite handles of a library load, and the statements that outlive it.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace zq {

/// One read-only connection to a library database file. The file is opened as immutable:
/// nothing on a device's volume is written or locked, and no journal, WAL or shared-memory file
/// ever appears beside it. Closes the connection when destroyed; every statement prepared on it
/// must be finalized first (a load's statements live in objects destroyed before its
/// connections).
class SQLiteConnection {
public:
    SQLiteConnection() = default;
    /// Opens `path`; valid() tells whether that worked. A missing file is not created.
    explicit SQLiteConnection(const std::string& path);
    SQLiteConnection(SQLiteConnection&& other) noexcept : db_(other.db_) { other.db_ = nullptr; }
    SQLiteConnection& operator=(SQLiteConnection&& other) noexcept;
    SQLiteConnection(const SQLiteConnection&) = delete;
    SQLiteConnection& operator=(const SQLiteConnection&) = delete;
    ~SQLiteConnection() { close(); }

    bool valid() const { return db_ != nullptr && opened_; }
    sqlite3* handle() const { return db_; }
    /// Closes now (a second call does nothing).
    void close();

private:
    sqlite3* db_ = nullptr;
    bool opened_ = false;
};

/// One prepared statement, finalized when destroyed. Construction prepares the text on the
/// connection and throws "<application identifier>.SQLiteFailed" with SQLite's message when
/// that fails.
class SQLiteStatement {
public:
    SQLiteStatement(sqlite3* db, const char* sql);
    SQLiteStatement(const SQLiteStatement&) = delete;
    SQLiteStatement& operator=(const SQLiteStatement&) = delete;
    ~SQLiteStatement();

    sqlite3_stmt* handle() const { return statement_; }
    /// Steps once; true while a row is there.
    bool step();
    void reset();

private:
    sqlite3_stmt* statement_ = nullptr;
};

/// Resets a statement when the scope that used it ends.
class SQLiteResetOnExit {
public:
    explicit SQLiteResetOnExit(sqlite3_stmt* statement) : statement_(statement) {}
    SQLiteResetOnExit(const SQLiteResetOnExit&) = delete;
    SQLiteResetOnExit& operator=(const SQLiteResetOnExit&) = delete;
    ~SQLiteResetOnExit();

private:
    sqlite3_stmt* statement_;
};

/// The exception a failed prepare raises: "<application identifier>.SQLiteFailed", reason
/// "Failed to prepare statement with message '<SQLite's message>'.".
[[noreturn]] void throwSQLiteFailed(sqlite3* db);

/// A text column as the library's strings take it: no value for NULL, and none for bytes that
/// are not UTF-8; the text ends at its first NUL byte, if any.
std::optional<std::string> sqliteText(sqlite3_stmt* statement, int column);
/// The same text in place, valid until the statement moves on or reads that column otherwise.
std::optional<std::string_view> sqliteTextView(sqlite3_stmt* statement, int column);

/// The SQLite URI that opens `path` read-only and immutable.
std::string immutableDatabaseURI(const std::string& path);

} // namespace zq
