#pragma once

// The rows a track of the SQLite library takes from the tables beside its item row.

#include "ZQCore/foundation/IDIndex.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace zq {

/// One table beside the item table, answered by key.
///
/// The question is always one statement, prepared on the load's own connection the first time
/// it is needed and finalized with the table: "SELECT <columns> FROM <table> WHERE <key>=?",
/// first row. Asking it once per track cost most of a load, so the first time a load needs the
/// table it reads the whole table once and answers from memory. Only a table
/// whose keys are all distinct integers is kept that way; for any other (keys of another type,
/// which compare by SQLite's affinity rules, or repeated keys, where "first row" depends on the
/// query plan) and for one whose reading fails part way, every answer comes from the statement
/// itself, as before. Either way a track gets the same row.
template <class Row>
class SQLiteSubTable {
public:
    /// Reads a Row from `statement`, its first field at `column`.
    using Reader = Row (*)(sqlite3_stmt* statement, int column);

    SQLiteSubTable(const char* table, const char* key, const char* columns, Reader read, bool wholeTable);
    ~SQLiteSubTable();
    SQLiteSubTable(const SQLiteSubTable&) = delete;
    SQLiteSubTable& operator=(const SQLiteSubTable&) = delete;

    /// The first row whose key equals `key`, or null. The first call prepares the statement on
    /// `db` (throwing "<application identifier>.SQLiteFailed" when that fails); later calls
    /// must pass the same connection, which must outlive this table. The row lives until the
    /// next call.
    const Row* find(sqlite3* db, std::int64_t key);

private:
    void readWholeTable(sqlite3* db);

    std::string lookup_;
    std::string scan_;
    Reader read_;
    bool wholeTable_;
    sqlite3_stmt* statement_ = nullptr;
    bool inMemory_ = false;
    std::vector<std::uint64_t> keys_;
    std::vector<Row> rows_;
    IDIndex index_;
    std::uint32_t next_ = 0;
    Row answer_{};
};

struct SQLiteVideoRow {
    std::uint32_t seasonNumber;
};
struct SQLiteGenreRow {
    std::optional<std::string> genre;
};
struct SQLiteAVRow {
    std::uint32_t bitrate, sampleRate, soundcheck;
};
struct SQLiteLocationRow {
    int baseLocationID;
    std::optional<std::string> location;
    double dateCreated;
    std::uint32_t fileSize;
};
struct SQLiteBaseLocationRow {
    std::optional<std::string> path;
};
struct SQLiteStatsRow {
    bool hasBeenPlayed;
    double datePlayed;
    std::uint32_t playCount;
    double dateSkipped;
    std::uint32_t skipCount;
    int rating;
};
struct SQLiteAlbumRow {
    std::uint64_t artworkItem;
    std::uint32_t seasonNumber;
};

/// The connections of one load and the tables its tracks read beside the item row, in the
/// order a track asks them (a table that cannot be prepared fails the load at the same point).
struct SQLiteSubRows {
    /// `wholeTables` false asks every row of the statements (for a single track).
    SQLiteSubRows(sqlite3* libraryDatabase, sqlite3* locationsDatabase, sqlite3* dynamicsDatabase, bool wholeTables);

    sqlite3* library;
    sqlite3* locations;
    sqlite3* dynamics;
    SQLiteSubTable<SQLiteVideoRow> videoInfo;
    SQLiteSubTable<SQLiteGenreRow> genres;
    SQLiteSubTable<SQLiteAVRow> avInfo;
    SQLiteSubTable<SQLiteLocationRow> location;
    SQLiteSubTable<SQLiteBaseLocationRow> baseLocations;
    SQLiteSubTable<SQLiteStatsRow> stats;
    SQLiteSubTable<SQLiteAlbumRow> albums;
};

/// Track dates: a 32-bit column taken unsigned, in seconds after 2001-01-01 00:00:00 UTC. So a
/// stored -1 lies 4294967295 seconds after that date, not one second before (playlist dates
/// read the same column type signed).
double sqliteTrackDate(sqlite3_stmt* statement, int column);
/// A 32-bit column taken unsigned.
std::uint32_t sqliteUnsigned(sqlite3_stmt* statement, int column);

} // namespace zq
