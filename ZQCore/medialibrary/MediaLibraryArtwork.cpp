#include "ZQCore/medialibrary/MediaLibraryArtwork.h"

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/medialibrary/MediaLibrarySchema.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"

#include <sqlite3.h>

#include <map>
#include <unordered_map>

namespace zq {

namespace {

constexpr const char* kArtworkFolder = "iTunes_Control/iTunes/Artwork/";

// entity_type of the token tables: what entity_pid names.
constexpr int kItemEntity = 0;
constexpr int kAlbumEntity = 1;

/// The statement that lists (entity pid, entity type, relative path) for this release, or ""
/// when the database names no artwork files.
std::string artworkQuery(const MediaLibrarySchema& schema)
{
    const bool files = schema.has("artwork", "artwork_token") && schema.has("artwork", "relative_path");
    if (files) {
        for (const char* tokens : {"best_artwork_token", "artwork_token"}) {
            const auto token = schema.firstColumn(tokens, {"available_artwork_token", "artwork_token"});
            if (!token || !schema.has(tokens, "entity_pid"))
                continue;
            const std::string type = schema.has(tokens, "entity_type") ? "t.entity_type" : "NULL";
            const std::string order = schema.has(tokens, "artwork_type") ? "t.artwork_type, " : "";
            return "SELECT t.entity_pid, " + type + ", a.relative_path FROM " + sqlIdentifier(tokens) +
                   " AS t JOIN artwork AS a ON a.artwork_token = t." + sqlIdentifier(*token) + " ORDER BY " + order +
                   "t.ROWID";
        }
    }
    if (schema.hasTable("artwork_info")) {
        const auto entity = schema.firstColumn("artwork_info", {"item_pid", "entity_pid"});
        const auto path = schema.firstColumn("artwork_info", {"relative_path", "path"});
        if (entity && path)
            return "SELECT " + sqlIdentifier(*entity) + ", " + std::to_string(kItemEntity) + ", " + sqlIdentifier(*path) +
                   " FROM artwork_info";
    }
    return {};
}

} // namespace

void attachMediaLibraryArtwork(sqlite3* db, const MediaLibrarySchema& schema, const std::vector<std::shared_ptr<iPodTrack>>& tracks,
                               const std::string& mediaRoot, const std::shared_ptr<TrackLibrary>& parent)
{
    const std::string query = artworkQuery(schema);
    if (query.empty())
        return;

    std::unordered_map<std::int64_t, std::shared_ptr<AlbumArt>> byItem, byAlbum;
    std::map<std::string, std::shared_ptr<AlbumArt>> byFile;  // one object per picture
    SQLiteStatement rows(db, query.c_str());
    int status;
    while ((status = sqlite3_step(rows.handle())) == SQLITE_ROW) {
        const std::int64_t entity = sqlite3_column_int64(rows.handle(), 0);
        const bool typed = sqlite3_column_type(rows.handle(), 1) != SQLITE_NULL;
        const int type = sqlite3_column_int(rows.handle(), 1);
        const auto relative = sqliteText(rows.handle(), 2);
        if (!relative || (typed && type != kItemEntity && type != kAlbumEntity))
            continue;
        const auto path = mediaLibraryFilePath(mediaRoot, kArtworkFolder + *relative);
        if (!path || relative->empty())
            continue;
        auto& art = byFile[*path];
        if (!art)
            art = AlbumArt::initWithReps({AlbumArtRep::initWithImageFile(*path, parent)}, 0,
                                         static_cast<std::uint64_t>(entity));
        // The first row of an entity wins (rows come in artwork-type order).
        if (!typed || type == kItemEntity)
            byItem.emplace(entity, art);
        if (!typed || type == kAlbumEntity)
            byAlbum.emplace(entity, art);
    }
    if (status != SQLITE_DONE)
        throwSQLiteFailed(db);

    for (const auto& track : tracks) {
        auto own = byItem.find(static_cast<std::int64_t>(track->dbid()));
        if (own != byItem.end()) {
            track->setAlbumArt(own->second);
            continue;
        }
        auto album = track->albumID() ? byAlbum.find(static_cast<std::int64_t>(track->albumID())) : byAlbum.end();
        if (album != byAlbum.end())
            track->setAlbumArt(album->second);
    }
}

} // namespace zq
