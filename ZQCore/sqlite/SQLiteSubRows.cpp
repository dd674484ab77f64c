// The tables beside the SQLite library's item table, read whole once per load.

#include "ZQCore/sqlite/SQLiteSubRows.h"

#include <sqlite3.h>

namespace zq {

template <class Row>
SQLiteSubTable<Row>::SQLiteSubTable(const char* table, const char* key, const char* columns, Reader read,
                                    bool wholeTable)
    : lookup_(std::string("SELECT ") + columns + " FROM " + table + " WHERE " + key + "=?"),
      scan_(std::string("SELECT ") + key + ", " + columns + " FROM " + table),
      read_(read),
      wholeTable_(wholeTable)
{
}

template <class Row>
SQLiteSubTable<Row>::~SQLiteSubTable()
{
    sqlite3_finalize(statement_);
}

template <class Row>
const Row* SQLiteSubTable<Row>::find(sqlite3* db, std::int64_t key)
{
    if (!statement_) {
        // Prepared on this load's own connection: a statement belongs to the files it was
        // prepared on, so each library answers from its own device.
        sqlite3_stmt* prepared = nullptr;
        if (sqlite3_prepare(db, lookup_.c_str(), -1, &prepared, nullptr) != SQLITE_OK || !prepared) {
            sqlite3_finalize(prepared);
            throwSQLiteFailed(db);
        }
        statement_ = prepared;
        if (wholeTable_)
            readWholeTable(db);
    }
    if (inMemory_) {
        // These tables usually keep the item table's order: try the row after the last answer
        // before the index.
        const auto id = static_cast<std::uint64_t>(key);
        std::uint32_t position = next_;
        if (position >= keys_.size() || keys_[position] != id)
            position = index_.find(id);
        if (position == IDIndex::kNone)
            return nullptr;
        next_ = position + 1;
        return &rows_[position];
    }
    SQLiteResetOnExit reset(statement_);
    sqlite3_bind_int64(statement_, 1, key);
    if (sqlite3_step(statement_) != SQLITE_ROW)
        return nullptr;
    answer_ = read_(statement_, 0);
    return &answer_;
}

template <class Row>
void SQLiteSubTable<Row>::readWholeTable(sqlite3* db)
{
    sqlite3_stmt* scan = nullptr;
    if (sqlite3_prepare_v2(db, scan_.c_str(), -1, &scan, nullptr) != SQLITE_OK || !scan) {
        sqlite3_finalize(scan);
        return;
    }
    bool usable = true;
    int step = SQLITE_ERROR;
    while (usable && (step = sqlite3_step(scan)) == SQLITE_ROW) {
        const auto id = static_cast<std::uint64_t>(sqlite3_column_int64(scan, 0));
        usable = sqlite3_column_type(scan, 0) == SQLITE_INTEGER && rows_.size() < IDIndex::kNone &&
                 index_.insert(id, static_cast<std::uint32_t>(rows_.size()));
        if (usable) {
            keys_.push_back(id);
            rows_.push_back(read_(scan, 1));
        }
    }
    sqlite3_finalize(scan);
    inMemory_ = usable && step == SQLITE_DONE;
    if (!inMemory_) {
        keys_ = {};
        rows_ = {};
        index_ = {};
    }
}

double sqliteTrackDate(sqlite3_stmt* statement, int column)
{
    return static_cast<double>(static_cast<std::uint32_t>(sqlite3_column_int(statement, column)));
}

std::uint32_t sqliteUnsigned(sqlite3_stmt* statement, int column)
{
    return static_cast<std::uint32_t>(sqlite3_column_int(statement, column));
}

namespace {

SQLiteVideoRow readVideo(sqlite3_stmt* s, int c) { return {sqliteUnsigned(s, c)}; }

SQLiteGenreRow readGenre(sqlite3_stmt* s, int c) { return {sqliteText(s, c)}; }

SQLiteAVRow readAV(sqlite3_stmt* s, int c)
{
    return {sqliteUnsigned(s, c), sqliteUnsigned(s, c + 1), sqliteUnsigned(s, c + 2)};
}

SQLiteLocationRow readLocation(sqlite3_stmt* s, int c)
{
    return {sqlite3_column_int(s, c), sqliteText(s, c + 1), sqliteTrackDate(s, c + 2), sqliteUnsigned(s, c + 3)};
}

SQLiteBaseLocationRow readBaseLocation(sqlite3_stmt* s, int c) { return {sqliteText(s, c)}; }

SQLiteStatsRow readStats(sqlite3_stmt* s, int c)
{
    // Plays and skips count both the user's and the recent ones.
    return {sqlite3_column_int(s, c) == 1,
            sqliteTrackDate(s, c + 1),
            sqliteUnsigned(s, c + 2) + sqliteUnsigned(s, c + 3),
            sqliteTrackDate(s, c + 4),
            sqliteUnsigned(s, c + 5) + sqliteUnsigned(s, c + 6),
            sqlite3_column_int(s, c + 7)};
}

SQLiteAlbumRow readAlbum(sqlite3_stmt* s, int c)
{
    return {static_cast<std::uint64_t>(sqlite3_column_int64(s, c)), sqliteUnsigned(s, c + 1)};
}

} // namespace

SQLiteSubRows::SQLiteSubRows(sqlite3* libraryDatabase, sqlite3* locationsDatabase, sqlite3* dynamicsDatabase,
                             bool wholeTables)
    : library(libraryDatabase),
      locations(locationsDatabase),
      dynamics(dynamicsDatabase),
      videoInfo("video_info", "item_pid", "season_number", readVideo, wholeTables),
      genres("genre_map", "id", "genre", readGenre, wholeTables),
      avInfo("avformat_info", "item_pid",
             "bit_rate, sample_rate, volume_normalization_energy", readAV, wholeTables),
      location("location", "item_pid",
               "base_location_id, location, date_created, file_size", readLocation, wholeTables),
      baseLocations("base_location", "id", "path", readBaseLocation, wholeTables),
      stats("item_stats", "item_pid",
            "has_been_played, date_played, play_count_user, play_count_recent, date_skipped, skip_count_user, "
            "skip_count_recent, user_rating, user_rating_common",
            readStats, wholeTables),
      albums("album", "pid", "artwork_item_pid, season_number", readAlbum, wholeTables)
{
}

template class SQLiteSubTable<SQLiteVideoRow>;
template class SQLiteSubTable<SQLiteGenreRow>;
template class SQLiteSubTable<SQLiteAVRow>;
template class SQLiteSubTable<SQLiteLocationRow>;
template class SQLiteSubTable<SQLiteBaseLocationRow>;
template class SQLiteSubTable<SQLiteStatsRow>;
template class SQLiteSubTable<SQLiteAlbumRow>;

} // namespace zq
