#pragma once

// What one MediaLibrary.sqlitedb holds: its tables and their columns, read once with
// PRAGMA table_info. The database of iOS 5 and that of today's releases share a core, but
// tables and columns come and go between releases (item_extra, item_playback, item_store,
// container_items before container_item, artwork_info before artwork and its tokens...), so the
// readers ask here what is present instead of trusting a version number.

#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <string>

struct sqlite3;

namespace zq {

class MediaLibrarySchema {
public:
    /// Reads the table list and every table's columns. Throws "<application identifier>.SQLiteFailed"
    /// when the file is not a readable database (the first read of a corrupt file fails here);
    /// a single table whose columns cannot be read is listed in unreadableTables() instead.
    explicit MediaLibrarySchema(sqlite3* db);

    bool hasTable(const std::string& table) const { return tables_.contains(table); }
    bool has(const std::string& table, const std::string& column) const;
    /// The first of `candidates` that `table` has; no value when it has none (or is missing).
    std::optional<std::string> firstColumn(const std::string& table, std::initializer_list<const char*> candidates) const;
    /// The first of `candidates` that exists as a table.
    std::optional<std::string> firstTable(std::initializer_list<const char*> candidates) const;

    /// Tables the file declares but SQLite cannot read, with SQLite's reason; the readers treat
    /// them as absent.
    const std::map<std::string, std::string>& unreadableTables() const { return unreadable_; }
    /// Sets a table aside as unreadable (one whose rows failed to read, say).
    void markUnreadable(const std::string& table, const std::string& reason);

private:
    std::map<std::string, std::set<std::string>> tables_;
    std::map<std::string, std::string> unreadable_;
};

/// `name` quoted as an SQL identifier. Table and column names come from the file itself, so they
/// are quoted wherever they are put into a statement.
std::string sqlIdentifier(const std::string& name);

} // namespace zq
