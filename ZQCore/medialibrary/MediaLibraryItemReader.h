#pragma once

// Reads every item of a MediaLibrary.sqlitedb with one statement built from what the database
// has: the item table joined to its per-item companions (item_extra, item_playback, item_stats,
// item_store, item_video) and to the name tables (album, item_artist, album_artist, genre,
// composer, base_location). Each value is taken from the first place that has it, in the order
// of today's releases first, then the older ones; a value found nowhere stays absent.

#include "ZQCore/medialibrary/MediaLibraryItem.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;

namespace zq {

class MediaLibrarySchema;

class MediaLibraryItemReader {
public:
    MediaLibraryItemReader(sqlite3* db, const MediaLibrarySchema& schema);

    /// Calls `visit` for every item in row order. Throws "<application identifier>.SQLiteFailed"
    /// when the statement cannot be prepared or a row cannot be read; a database without an item
    /// table has no items.
    void forEachItem(const std::function<void(const MediaLibraryItem&)>& visit) const;

    /// The statement built for this database (for messages and tests).
    const std::string& query() const { return query_; }
    /// The tables joined to the item table, the ones a damaged page may lie in when a row
    /// cannot be read.
    const std::vector<std::string>& joinedTables() const { return joined_; }

    /// Whether the database says where files are at all (some table of it has a location
    /// column). Without one, an item with no location is not known to be only in the cloud.
    bool locatesFiles() const { return locatesFiles_; }

    /// Whether `table` is one the items may be joined to (a companion or a name table).
    static bool feedsItems(const std::string& table);

    /// The statement's expression for a track's media kind: `mediaKind` (a media_kind column,
    /// numbered as in iTunesDB) where it has a value, else `mediaType` (item.media_type)
    /// translated to that numbering.
    static std::optional<std::string> mediaKindExpression(const std::optional<std::string>& mediaKind,
                                                          const std::optional<std::string>& mediaType);

private:
    sqlite3* db_;
    std::string query_;
    std::vector<std::string> joined_;
    bool locatesFiles_ = false;
};

} // namespace zq
