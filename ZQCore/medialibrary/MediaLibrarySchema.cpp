#include "ZQCore/medialibrary/MediaLibrarySchema.h"

#include "ZQCore/foundation/Exception.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"

#include <sqlite3.h>

#include <vector>

namespace zq {

MediaLibrarySchema::MediaLibrarySchema(sqlite3* db)
{
    std::vector<std::string> names;
    {
        SQLiteStatement tables(db, "SELECT name FROM sqlite_master WHERE type = 'table'");
        int status;
        while ((status = sqlite3_step(tables.handle())) == SQLITE_ROW)
            if (auto name = sqliteText(tables.handle(), 0))
                names.push_back(*name);
        // A page that cannot be read ends the list with an error, never with a shorter list.
        if (status != SQLITE_DONE)
            throwSQLiteFailed(db);
    }
    for (const auto& name : names) {
        // A table whose declaration SQLite cannot use (a phone's virtual tables, whose module
        // only the phone has) is set aside with SQLite's reason: it costs what it feeds, not
        // the library.
        try {
            std::set<std::string> columns;
            SQLiteStatement info(db, ("PRAGMA table_info(" + sqlIdentifier(name) + ")").c_str());
            int status;
            while ((status = sqlite3_step(info.handle())) == SQLITE_ROW)
                if (auto column = sqliteText(info.handle(), 1))
                    columns.insert(*column);
            if (status != SQLITE_DONE)
                throwSQLiteFailed(db);
            tables_[name] = std::move(columns);
        } catch (const Exception&) {
            markUnreadable(name, sqlite3_errmsg(db));
        }
    }
}

void MediaLibrarySchema::markUnreadable(const std::string& table, const std::string& reason)
{
    tables_.erase(table);
    unreadable_.insert_or_assign(table, reason);
}

bool MediaLibrarySchema::has(const std::string& table, const std::string& column) const
{
    auto found = tables_.find(table);
    return found != tables_.end() && found->second.contains(column);
}

std::optional<std::string> MediaLibrarySchema::firstColumn(const std::string& table,
                                                           std::initializer_list<const char*> candidates) const
{
    for (const char* column : candidates)
        if (has(table, column))
            return std::string(column);
    return std::nullopt;
}

std::optional<std::string> MediaLibrarySchema::firstTable(std::initializer_list<const char*> candidates) const
{
    for (const char* table : candidates)
        if (hasTable(table))
            return std::string(table);
    return std::nullopt;
}

std::string sqlIdentifier(const std::string& name)
{
    std::string quoted = "\"";
    for (char c : name) {
        if (c == '"')
            quoted += '"';
        quoted += c;
    }
    return quoted + "\"";
}

} // namespace zq
