#include "ZQCore/medialibrary/MediaLibraryItemReader.h"

#include "ZQCore/medialibrary/MediaLibrarySchema.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"

#include <sqlite3.h>

#include <utility>
#include <vector>

namespace zq {

namespace {

// The values of an item, in the order of the statement's columns after the key.
enum Field {
    Title, Album, Artist, AlbumArtist, Genre, Composer, Comment, Grouping, Description, EQPreset, Location, BasePath,
    FirstInteger,
    AlbumPid = FirstInteger, BaseLocationID, MediaType, TrackNumber, TrackCount, DiscNumber, DiscCount, Year, FileSize,
    BitRate, RelativeVolume, Soundcheck, BPM, PlayCount, SkipCount, Rating, HasBeenPlayed, IsCompilation,
    IsUserDisabled, SeasonNumber, EpisodeNumber, DatePlayed, DateSkipped, DateAdded, DateModified, DateReleased,
    FirstReal,
    TotalTime = FirstReal, StartTime, StopTime, SampleRate,
    FieldCount
};

using Candidates = std::vector<std::pair<const char*, std::vector<const char*>>>;

// Where each value lives, newest layout first. The first name of a pair is a table of the join
// (a companion table, or one of the name tables by its role), the list its possible columns.
const std::vector<Candidates>& fieldSources()
{
    static const std::vector<Candidates> sources = [] {
        std::vector<Candidates> s(FieldCount);
        const auto own = [](const char* column) {
            return Candidates{{"item_extra", {column}}, {"item", {column}}};
        };
        s[Title] = own("title");
        s[Album] = {{"album", {"album", "name"}}, {"item", {"album"}}, {"item_extra", {"album"}}};
        s[Artist] = {{"item_artist", {"item_artist", "artist", "name"}}, {"item", {"artist"}}, {"item_extra", {"artist"}}};
        s[AlbumArtist] = {{"album_artist", {"album_artist", "name"}}, {"item", {"album_artist"}}, {"item_extra", {"album_artist"}}};
        s[Genre] = {{"genre", {"genre", "name"}}, {"item", {"genre"}}, {"item_extra", {"genre"}}};
        s[Composer] = {{"composer", {"composer", "name"}}, {"item", {"composer"}}, {"item_extra", {"composer"}}};
        s[Comment] = own("comment");
        s[Grouping] = {{"item_extra", {"grouping"}}, {"item", {"grouping"}}, {"item_store", {"grouping"}}};
        s[Description] = {{"item_extra", {"description", "description_long"}}, {"item", {"description"}}};
        s[EQPreset] = {{"item_playback", {"eq_preset"}}, {"item_extra", {"eq_preset"}}, {"item", {"eq_preset"}}};
        s[Location] = own("location");
        s[BasePath] = {{"base_location", {"path"}}};
        s[AlbumPid] = {{"item", {"album_pid"}}, {"item_extra", {"album_pid"}}};
        s[BaseLocationID] = {{"item", {"base_location_id"}}, {"item_extra", {"base_location_id"}}};
        // media_kind counts as the iTunesDB does (songs 1, podcast episodes 4); item.media_type
        // has a numbering of its own, translated below when it is all there is.
        s[MediaType] = {{"item_extra", {"media_kind"}}, {"item", {"media_kind"}}};
        s[TrackNumber] = {{"item", {"track_number"}}, {"item_extra", {"track_number"}}};
        s[TrackCount] = own("track_count");
        s[DiscNumber] = {{"item", {"disc_number"}}, {"item_extra", {"disc_number"}}};
        s[DiscCount] = own("disc_count");
        s[Year] = {{"item_extra", {"year"}}, {"item", {"year"}}, {"album", {"album_year"}}};
        s[FileSize] = own("file_size");
        s[BitRate] = {{"item_playback", {"bit_rate"}}, {"item_extra", {"bit_rate"}}, {"item", {"bit_rate"}}};
        s[RelativeVolume] = {{"item_playback", {"relative_volume"}}, {"item_extra", {"relative_volume"}}, {"item", {"relative_volume"}}};
        s[Soundcheck] = {{"item_playback", {"volume_normalization_energy"}}, {"item_extra", {"volume_normalization_energy"}}};
        s[BPM] = {{"item_playback", {"bpm"}}, {"item_extra", {"bpm"}}, {"item", {"bpm"}}};
        s[PlayCount] = {{"item_stats", {"play_count_user"}}, {"item", {"play_count_user"}}};
        s[SkipCount] = {{"item_stats", {"skip_count_user"}}, {"item", {"skip_count_user"}}};
        s[Rating] = {{"item_stats", {"user_rating"}}, {"item", {"user_rating"}}};
        s[HasBeenPlayed] = {{"item_stats", {"has_been_played"}}, {"item", {"has_been_played"}}};
        s[IsCompilation] = {{"item", {"is_compilation"}}, {"item_extra", {"is_compilation"}}, {"album", {"all_compilations"}}};
        s[IsUserDisabled] = {{"item_extra", {"is_user_disabled"}}, {"item", {"is_user_disabled"}}};
        s[SeasonNumber] = {{"item_video", {"season_number"}}, {"album", {"season_number"}}};
        s[EpisodeNumber] = {{"item_video", {"episode_sort_id"}}, {"item", {"episode_sort_id"}}};
        s[DatePlayed] = {{"item_stats", {"date_played"}}, {"item", {"date_played"}}};
        s[DateSkipped] = {{"item_stats", {"date_skipped"}}, {"item", {"date_skipped"}}};
        s[DateAdded] = {{"item", {"date_added"}}, {"item_extra", {"date_added", "date_created"}}};
        s[DateModified] = own("date_modified");
        s[DateReleased] = {{"item_extra", {"date_released"}}, {"item", {"date_released"}}, {"item_store", {"date_released"}}};
        s[TotalTime] = {{"item_extra", {"total_time_ms"}}, {"item", {"total_time_ms"}}, {"item_playback", {"duration"}}};
        s[StartTime] = {{"item_playback", {"start_time_ms"}}, {"item_extra", {"start_time_ms"}}, {"item", {"start_time_ms"}}};
        s[StopTime] = {{"item_playback", {"stop_time_ms"}}, {"item_extra", {"stop_time_ms"}}, {"item", {"stop_time_ms"}}};
        s[SampleRate] = {{"item_playback", {"sample_rate"}}, {"item_extra", {"sample_rate"}}};
        return s;
    }();
    return sources;
}

// A name table reached from an id of the item: its role, the tables that may play it, their key
// column and the id column on the item's side.
struct Lookup {
    const char* role;
    std::vector<const char*> tables;
    std::vector<const char*> keys;
    std::vector<const char*> itemColumns;
};

const std::vector<Lookup>& lookups()
{
    static const std::vector<Lookup> all = {
        {"album", {"album"}, {"album_pid", "pid"}, {"album_pid"}},
        {"item_artist", {"item_artist", "artist"}, {"item_artist_pid", "artist_pid", "pid"}, {"item_artist_pid", "artist_pid"}},
        // Older releases name the album artist on the album only.
        {"album_artist", {"album_artist"}, {"album_artist_pid", "pid"}, {"album_artist_pid"}},
        {"genre", {"genre", "genre_map"}, {"genre_id", "id"}, {"genre_id"}},
        {"composer", {"composer"}, {"composer_pid", "pid"}, {"composer_pid"}},
        {"base_location", {"base_location"}, {"base_location_id", "id"}, {"base_location_id"}},
    };
    return all;
}

constexpr const char* kCompanions[] = {"item_extra", "item_playback", "item_stats", "item_store", "item_video"};

} // namespace

MediaLibraryItemReader::MediaLibraryItemReader(sqlite3* db, const MediaLibrarySchema& schema) : db_(db)
{
    if (!schema.hasTable("item"))
        return;
    // Each role of the join, by the real table behind it and the alias it has in the statement.
    std::vector<std::pair<std::string, std::string>> roles;  // role -> table
    auto tableOf = [&](const std::string& role) -> std::optional<std::string> {
        for (const auto& [r, table] : roles)
            if (r == role)
                return table;
        return std::nullopt;
    };
    auto columnIn = [&](const std::string& role, const std::vector<const char*>& columns) -> std::optional<std::string> {
        auto table = tableOf(role);
        if (!table)
            return std::nullopt;
        for (const char* column : columns)
            if (schema.has(*table, column))
                return "r_" + role + "." + sqlIdentifier(column);
        return std::nullopt;
    };

    const auto key = schema.firstColumn("item", {"item_pid", "pid"});
    const std::string itemKey = "r_item." + (key ? sqlIdentifier(*key) : std::string("ROWID"));
    roles.emplace_back("item", "item");
    std::string from = "FROM \"item\" AS r_item";
    for (const char* companion : kCompanions) {
        if (!schema.has(companion, "item_pid"))
            continue;
        roles.emplace_back(companion, companion);
        from += std::string(" LEFT JOIN ") + sqlIdentifier(companion) + " AS r_" + companion + " ON r_" + companion +
                ".\"item_pid\" = " + itemKey;
    }
    for (const Lookup& lookup : lookups()) {
        std::optional<std::string> table, tableKey, itemSide;
        for (const char* candidate : lookup.tables)
            if (!table && schema.hasTable(candidate)) {
                table = candidate;
                for (const char* k : lookup.keys)
                    if (!tableKey && schema.has(candidate, k))
                        tableKey = k;
            }
        if (!table || !tableKey)
            continue;
        for (const auto& [role, real] : std::vector<std::pair<std::string, std::string>>(roles))
            if (!itemSide)
                itemSide = columnIn(role, lookup.itemColumns);
        if (!itemSide)
            continue;
        roles.emplace_back(lookup.role, *table);
        from += " LEFT JOIN " + sqlIdentifier(*table) + " AS r_" + lookup.role + " ON r_" + lookup.role + "." +
                sqlIdentifier(*tableKey) + " = " + *itemSide;
    }

    query_ = "SELECT " + itemKey;
    for (std::size_t field = 0; field < fieldSources().size(); ++field) {
        std::optional<std::string> expression;
        for (const auto& [role, columns] : fieldSources()[field])
            if (!expression)
                expression = columnIn(role, columns);
        if (field == MediaType)
            expression = mediaKindExpression(expression, columnIn("item", {"media_type"}));
        if (field == Location)
            locatesFiles_ = expression.has_value();
        query_ += ", " + expression.value_or("NULL");
    }
    query_ += " " + from;
    for (const auto& [role, table] : roles)
        if (role != "item")
            joined_.push_back(table);
}

bool MediaLibraryItemReader::feedsItems(const std::string& table)
{
    for (const char* companion : kCompanions)
        if (table == companion)
            return true;
    for (const Lookup& lookup : lookups())
        for (const char* candidate : lookup.tables)
            if (table == candidate)
                return true;
    return false;
}

std::optional<std::string> MediaLibraryItemReader::mediaKindExpression(const std::optional<std::string>& mediaKind,
                                                                       const std::optional<std::string>& mediaType)
{
    // Only the codes of item.media_type seen in real databases are translated (songs 8, podcast
    // episodes 4); any other code is no kind rather than a wrong one.
    if (!mediaType)
        return mediaKind;
    const std::string translated = "(CASE " + *mediaType + " WHEN 8 THEN 1 WHEN 4 THEN 4 ELSE 0 END)";
    if (!mediaKind)
        return translated;
    return "COALESCE(" + *mediaKind + ", " + translated + ")";
}

void MediaLibraryItemReader::forEachItem(const std::function<void(const MediaLibraryItem&)>& visit) const
{
    if (query_.empty())
        return;
    SQLiteStatement rows(db_, query_.c_str());
    sqlite3_stmt* row = rows.handle();
    auto integer = [&](int field) -> std::optional<std::int64_t> {
        if (sqlite3_column_type(row, field + 1) == SQLITE_NULL)
            return std::nullopt;
        return sqlite3_column_int64(row, field + 1);
    };
    auto real = [&](int field) -> std::optional<double> {
        if (sqlite3_column_type(row, field + 1) == SQLITE_NULL)
            return std::nullopt;
        return sqlite3_column_double(row, field + 1);
    };
    auto text = [&](int field) { return sqliteText(row, field + 1); };

    int status;
    MediaLibraryItem item;
    while ((status = sqlite3_step(row)) == SQLITE_ROW) {
        item = MediaLibraryItem();
        item.pid = sqlite3_column_int64(row, 0);
        std::optional<std::string>* texts[] = {&item.title, &item.album, &item.artist, &item.albumArtist, &item.genre,
                                               &item.composer, &item.comment, &item.grouping, &item.description,
                                               &item.eqPreset, &item.location, &item.basePath};
        for (int f = 0; f < FirstInteger; ++f)
            *texts[f] = text(f);
        std::optional<std::int64_t>* integers[] = {
            &item.albumPid, &item.baseLocationID, &item.mediaType, &item.trackNumber, &item.trackCount,
            &item.discNumber, &item.discCount, &item.year, &item.fileSize, &item.bitRate, &item.relativeVolume,
            &item.soundcheck, &item.bpm, &item.playCount, &item.skipCount, &item.rating, &item.hasBeenPlayed,
            &item.isCompilation, &item.isUserDisabled, &item.seasonNumber, &item.episodeNumber, &item.datePlayed,
            &item.dateSkipped, &item.dateAdded, &item.dateModified, &item.dateReleased};
        for (int f = FirstInteger; f < FirstReal; ++f)
            *integers[f - FirstInteger] = integer(f);
        std::optional<double>* reals[] = {&item.totalTimeMs, &item.startTimeMs, &item.stopTimeMs, &item.sampleRate};
        for (int f = FirstReal; f < FieldCount; ++f)
            *reals[f - FirstReal] = real(f);
        visit(item);
    }
    // A damaged page ends the walk with an error, never with a shorter library.
    if (status != SQLITE_DONE)
        throwSQLiteFailed(db_);
}

} // namespace zq
