#include "ZQCore/sqlite/SQLiteDatabase.h"

#include "ZQCore/foundation/Application.h"
#include "ZQCore/foundation/Exception.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace zq {

namespace {

/// Whether `text` is well-formed UTF-8 (no overlong forms, surrogates or values past U+10FFFF),
/// the test a string made from UTF-8 bytes applies before it accepts them.
bool isUTF8(std::string_view text)
{
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    const auto* end = p + text.size();
    while (p < end) {
        unsigned char c = *p;
        if (c < 0x80) {
            ++p;
            continue;
        }
        std::size_t extra;
        std::uint32_t value;
        if (c >= 0xC2 && c <= 0xDF) {
            extra = 1;
            value = c & 0x1F;
        } else if (c >= 0xE0 && c <= 0xEF) {
            extra = 2;
            value = c & 0x0F;
        } else if (c >= 0xF0 && c <= 0xF4) {
            extra = 3;
            value = c & 0x07;
        } else {
            return false;
        }
        if (static_cast<std::size_t>(end - p) <= extra)
            return false;
        for (std::size_t i = 1; i <= extra; ++i) {
            if ((p[i] & 0xC0) != 0x80)
                return false;
            value = (value << 6) | (p[i] & 0x3F);
        }
        if ((extra == 2 && (value < 0x800 || (value >= 0xD800 && value <= 0xDFFF))) ||
            (extra == 3 && (value < 0x10000 || value > 0x10FFFF)))
            return false;
        p += extra + 1;
    }
    return true;
}

} // namespace

std::string immutableDatabaseURI(const std::string& path)
{
    // Everything but the unreserved characters and the separators is escaped, so that a mount
    // point or file name holding '?', '#' or '%' still names the file.
    static const char hex[] = "0123456789ABCDEF";
    // An absolute path gets the empty authority ("file:///..."), so that one starting with
    // "//" is not taken for a host name.
    std::string uri = !path.empty() && path.front() == '/' ? "file://" : "file:";
    for (unsigned char c : path) {
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '/' || c == '-' ||
            c == '.' || c == '_' || c == '~') {
            uri += static_cast<char>(c);
        } else {
            uri += '%';
            uri += hex[c >> 4];
            uri += hex[c & 0xF];
        }
    }
    return uri + "?immutable=1";
}

SQLiteConnection::SQLiteConnection(const std::string& path)
{
    // Read-only and immutable: the framework never writes a library database, and an immutable
    // file is read without locks, journals or a WAL index, so the device's folder stays exactly
    // as it was (a read-only connection could otherwise still create -shm/-wal files there).
    // The connection is used by one thread only (loads never run at the same time), so it goes
    // without SQLite's own mutex.
    opened_ = sqlite3_open_v2(immutableDatabaseURI(path).c_str(), &db_,
                              SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX, nullptr) == SQLITE_OK;
    // A load looks up every track in five tables of three files, all in one pass; with SQLite's
    // default page cache (2 MB) those lookups evict each other's pages and read them again.
    // A larger cap (pages are only held as they are read) lets each page be read once. Not a
    // memory map: a device file that shrinks under a map would end the process.
    if (opened_)
        sqlite3_exec(db_, "PRAGMA cache_size=-65536", nullptr, nullptr, nullptr);
}

SQLiteConnection& SQLiteConnection::operator=(SQLiteConnection&& other) noexcept
{
    if (this != &other) {
        close();
        db_ = other.db_;
        opened_ = other.opened_;
        other.db_ = nullptr;
        other.opened_ = false;
    }
    return *this;
}

void SQLiteConnection::close()
{
    // Every statement on the connection is finalized by now (they belong to the load), so the
    // close succeeds.
    if (db_)
        sqlite3_close(db_);
    db_ = nullptr;
    opened_ = false;
}

SQLiteStatement::SQLiteStatement(sqlite3* db, const char* sql)
{
    if (sqlite3_prepare(db, sql, -1, &statement_, nullptr) != SQLITE_OK || !statement_) {
        sqlite3_finalize(statement_);
        statement_ = nullptr;
        throwSQLiteFailed(db);
    }
}

SQLiteStatement::~SQLiteStatement() { sqlite3_finalize(statement_); }

bool SQLiteStatement::step() { return sqlite3_step(statement_) == SQLITE_ROW; }

void SQLiteStatement::reset() { sqlite3_reset(statement_); }

SQLiteResetOnExit::~SQLiteResetOnExit() { sqlite3_reset(statement_); }

void throwSQLiteFailed(sqlite3* db)
{
    throw Exception(ErrorKind::Damaged, applicationIdentifier() + ".SQLiteFailed",
                    std::string("Failed to prepare statement with message '") + sqlite3_errmsg(db) + "'.");
}

std::optional<std::string_view> sqliteTextView(sqlite3_stmt* statement, int column)
{
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    if (!text)
        return std::nullopt;
    std::string_view view(text, std::strlen(text));
    if (!isUTF8(view))
        return std::nullopt;
    return view;
}

std::optional<std::string> sqliteText(sqlite3_stmt* statement, int column)
{
    if (auto view = sqliteTextView(statement, column))
        return std::string(*view);
    return std::nullopt;
}

} // namespace zq
