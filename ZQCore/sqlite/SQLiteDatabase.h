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
/// ever appears beside it. Closes the connection when destroyed (SQLite keeps a connection that
/// still has unfinalized statements open; see SQLiteStatementCache).
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

/// The sub-queries a track makes for each row of the item table, prepared once per process.
///
/// A statement is prepared the first time a track needs it, on the connection that track was
/// given, and is only ever reset after that. Loads later in the same process therefore answer
/// these sub-queries from the files of the load that prepared them (and those connections stay
/// open for the life of the process): the library objects of a process share one device's
/// statistics, locations and album links. Loads must not run at the same time.
class SQLiteStatementCache {
public:
    enum Slot { VideoInfo, Genre, AVInfo, Location, BaseLocation, ItemStats, Album, SlotCount };

    /// The statement of `slot`, prepared on `db` with `sql` if the slot is still empty. Throws
    /// "<application identifier>.SQLiteFailed" when that prepare fails (the slot stays empty).
    static sqlite3_stmt* statement(Slot slot, sqlite3* db, const char* sql);

    /// Finalizes the cached statements and closes the connections they kept open, so that the
    /// next load prepares afresh on its own files. For tests, and for a host that wants to let
    /// go of a device's files; never called by the framework itself.
    static void forgetCachedStatements();
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
