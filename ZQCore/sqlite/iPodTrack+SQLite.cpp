// Filling a track from a row of the SQLite library's item table and its sub-rows.

#include "ZQCore/model/iPodTrack.h"

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"

#include <sqlite3.h>

#include <array>

namespace zq {

namespace {

// Columns of the item query (ZQCoreiPod+SQLite.cpp holds its text).
enum ItemColumn {
    Pid, TitleColumn, AlbumColumn, ArtistColumn, AlbumArtistColumn, DescriptionColumn, GroupingColumn,
    ComposerColumn, CommentColumn, EQPresetColumn, TotalTimeMs, TrackNumberColumn, TrackCount, Year,
    StartTimeMs, StopTimeMs, Bpm, DiscNumber, DiscCount, RelativeVolume, MediaKind, IsMovie, AlbumPid,
    DateModified, IsUserDisabled, IsCompilation, GenreId
};

/// A millisecond column stored as a real: negative values count as 0 and anything beyond
/// 32 bits as the largest 32-bit value.
std::uint32_t clampedMilliseconds(sqlite3_stmt* row, int column)
{
    double value = sqlite3_column_double(row, column);
    if (!(value > 0))
        return 0;
    if (value >= 4294967295.0)
        return 4294967295u;
    return static_cast<std::uint32_t>(value);
}

/// Track dates: a 32-bit column taken unsigned, in seconds after 2001-01-01 00:00:00 UTC. So a
/// stored -1 lies 4294967295 seconds after that date, not one second before (playlist dates
/// read the same column type signed).
double trackDate(sqlite3_stmt* statement, int column)
{
    return static_cast<double>(static_cast<std::uint32_t>(sqlite3_column_int(statement, column)));
}

std::uint32_t unsignedInt(sqlite3_stmt* statement, int column)
{
    return static_cast<std::uint32_t>(sqlite3_column_int(statement, column));
}

/// `base` and `component` joined by one separator, however many either side brought.
std::string appendingPathComponent(std::string base, std::string_view component)
{
    while (base.size() > 1 && base.back() == '/')
        base.pop_back();
    while (!component.empty() && component.front() == '/')
        component.remove_prefix(1);
    if (component.empty())
        return base;
    if (base.empty())
        return std::string(component);
    if (base != "/")
        base += '/';
    base += component;
    return base;
}

} // namespace

std::shared_ptr<iPodTrack> iPodTrack::initWithSQLiteRow(sqlite3_stmt* row, sqlite3* libraryDatabase,
                                                        sqlite3* /*extrasDatabase*/, sqlite3* locationsDatabase,
                                                        sqlite3* dynamicsDatabase,
                                                        const std::shared_ptr<ZQCoreiPod>& parent)
{
    auto track = make(parent);
    iPodTrack& t = *track;

    const sqlite3_int64 pid = sqlite3_column_int64(row, Pid);
    t.uniqueID_ = pid;
    t.dbid_ = static_cast<std::uint64_t>(pid);

    // The text fields are gathered here and stored in one go at the end (the track packs its
    // strings into one block, so setting them one by one would repack it each time).
    std::array<std::optional<std::string>, StringFieldCount> text;
    text[Title] = sqliteText(row, TitleColumn);
    text[Album] = sqliteText(row, AlbumColumn);
    text[Artist] = sqliteText(row, ArtistColumn);
    text[AlbumArtist] = sqliteText(row, AlbumArtistColumn);
    text[TrackDescription] = sqliteText(row, DescriptionColumn);
    text[Grouping] = sqliteText(row, GroupingColumn);
    text[Composer] = sqliteText(row, ComposerColumn);
    text[Comment] = sqliteText(row, CommentColumn);
    text[EQSettingText] = sqliteText(row, EQPresetColumn);

    // Times are stored as reals in milliseconds and stay milliseconds.
    t.trackLength_ = clampedMilliseconds(row, TotalTimeMs);
    t.startTime_ = clampedMilliseconds(row, StartTimeMs);
    t.endTime_ = clampedMilliseconds(row, StopTimeMs);

    t.trackNumber_ = unsignedInt(row, TrackNumberColumn);
    t.trackTotal_ = unsignedInt(row, TrackCount);
    t.year_ = unsignedInt(row, Year);
    t.BPM_ = static_cast<std::uint16_t>(sqlite3_column_int(row, Bpm));
    t.discNumber_ = unsignedInt(row, DiscNumber);
    t.discTotal_ = unsignedInt(row, DiscCount);
    t.volume_ = sqlite3_column_int(row, RelativeVolume);
    t.mediaType_ = unsignedInt(row, MediaKind);
    t.albumID_ = static_cast<std::uint64_t>(sqlite3_column_int64(row, AlbumPid));

    t.isMovie_ = sqlite3_column_int(row, IsMovie) == 1;
    // The database records the opposite of "checked": a track the user switched off.
    t.checked_ = sqlite3_column_int(row, IsUserDisabled) == 0;
    t.compilation_ = sqlite3_column_int(row, IsCompilation) == 1;
    t.lastModified_ = trackDate(row, DateModified);

    using Cache = SQLiteStatementCache;

    {
        sqlite3_stmt* video = Cache::statement(Cache::VideoInfo, libraryDatabase,
                                               "SELECT season_number FROM video_info WHERE item_pid=?");
        SQLiteResetOnExit reset(video);
        sqlite3_bind_int64(video, 1, pid);
        if (sqlite3_step(video) == SQLITE_ROW)
            t.seasonNumber_ = unsignedInt(video, 0);
    }
    {
        sqlite3_stmt* genre = Cache::statement(Cache::Genre, libraryDatabase, "SELECT genre FROM genre_map WHERE id=?");
        SQLiteResetOnExit reset(genre);
        sqlite3_bind_int(genre, 1, sqlite3_column_int(row, GenreId));
        if (sqlite3_step(genre) == SQLITE_ROW)
            text[Genre] = sqliteText(genre, 0);
    }
    {
        sqlite3_stmt* av = Cache::statement(
            Cache::AVInfo, libraryDatabase,
            "SELECT bit_rate, sample_rate, volume_normalization_energy FROM avformat_info WHERE item_pid=?");
        SQLiteResetOnExit reset(av);
        sqlite3_bind_int64(av, 1, pid);
        if (sqlite3_step(av) == SQLITE_ROW) {
            t.bitrate_ = unsignedInt(av, 0);
            t.sampleRate_ = unsignedInt(av, 1);
            t.soundcheckValue_ = unsignedInt(av, 2);
        }
    }
    {
        sqlite3_stmt* location = Cache::statement(
            Cache::Location, locationsDatabase,
            "SELECT base_location_id, location, date_created, file_size FROM location WHERE item_pid=?");
        SQLiteResetOnExit reset(location);
        sqlite3_bind_int64(location, 1, pid);
        if (sqlite3_step(location) == SQLITE_ROW) {
            t.fileSize_ = unsignedInt(location, 3);
            t.dateAdded_ = trackDate(location, 2);
            std::optional<std::string> relative = sqliteText(location, 1);

            sqlite3_stmt* base = Cache::statement(Cache::BaseLocation, locationsDatabase,
                                                  "SELECT path FROM base_location WHERE id=?");
            SQLiteResetOnExit resetBase(base);
            sqlite3_bind_int(base, 1, sqlite3_column_int(location, 0));
            std::optional<std::string> basePath;
            if (sqlite3_step(base) == SQLITE_ROW)
                basePath = sqliteText(base, 0);
            // The file lies at the mount point, then the base folder (such as
            // "iTunes_Control/Music/F00"), then the file's own name; without both parts the
            // track has no file path at all.
            if (basePath && !basePath->empty() && relative && !relative->empty())
                text[FilePath] = appendingPathComponent(
                    appendingPathComponent(parent ? parent->path() : std::string(), *basePath), *relative);
        }
    }
    {
        sqlite3_stmt* stats = Cache::statement(
            Cache::ItemStats, dynamicsDatabase,
            "SELECT has_been_played, date_played, play_count_user, play_count_recent, date_skipped, skip_count_user, "
            "skip_count_recent, user_rating, user_rating_common FROM item_stats WHERE item_pid=?");
        SQLiteResetOnExit reset(stats);
        sqlite3_bind_int64(stats, 1, pid);
        if (sqlite3_step(stats) == SQLITE_ROW) {
            t.hasBeenPlayed_ = sqlite3_column_int(stats, 0) == 1;
            t.lastPlayedTime_ = trackDate(stats, 1);
            t.playCount_ = unsignedInt(stats, 2) + unsignedInt(stats, 3);
            t.lastSkippedTime_ = trackDate(stats, 4);
            t.skipCount_ = unsignedInt(stats, 5) + unsignedInt(stats, 6);
            t.rating_ = sqlite3_column_int(stats, 7);
        }
    }
    {
        // Read last on purpose: an album's season number overrides the one of video_info.
        sqlite3_stmt* album = Cache::statement(Cache::Album, libraryDatabase,
                                               "SELECT artwork_item_pid, season_number FROM album WHERE pid=?");
        SQLiteResetOnExit reset(album);
        sqlite3_bind_int64(album, 1, static_cast<sqlite3_int64>(t.albumID_));
        if (sqlite3_step(album) == SQLITE_ROW) {
            t.artworkLink_ = static_cast<std::uint64_t>(sqlite3_column_int64(album, 0));
            t.seasonNumber_ = unsignedInt(album, 1);
        }
    }

    std::array<const std::string*, StringFieldCount> fields{};
    for (std::size_t i = 0; i < StringFieldCount; ++i)
        fields[i] = text[i] ? &*text[i] : nullptr;
    t.strings_.assign(fields);
    return track;
}

} // namespace zq
