// Filling a track from a row of the SQLite library's item table and its sub-rows.

#include "ZQCore/model/iPodTrack.h"

#include "ZQCore/model/Playlist.h"
#include "ZQCore/model/TrackLibrary.h"
#include "ZQCore/model/iPodTrack.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"
#include "ZQCore/sqlite/SQLiteSubRows.h"

#include <sqlite3.h>

#include <array>

namespace zq {

namespace {

// Columns of the item query (SQLiteLibraryLoader.cpp holds its text).
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
                                                        const std::shared_ptr<TrackLibrary>& parent)
{
    // One track: its sub-rows are asked one by one rather than reading whole tables.
    SQLiteSubRows subRows(libraryDatabase, locationsDatabase, dynamicsDatabase, false);
    return initWithSQLiteRow(row, subRows, parent);
}

std::shared_ptr<iPodTrack> iPodTrack::initWithSQLiteRow(sqlite3_stmt* row, SQLiteSubRows& sub,
                                                        const std::shared_ptr<TrackLibrary>& parent)
{
    auto track = make(parent);
    iPodTrack& t = *track;

    const sqlite3_int64 pid = sqlite3_column_int64(row, Pid);
    t.uniqueID_ = pid;
    t.dbid_ = static_cast<std::uint64_t>(pid);

    // The text fields are gathered here and stored in one go at the end (the track packs its
    // strings into one block, so setting them one by one would repack it each time). The item
    // row's texts are viewed in place: the row stays where it is until this track is made.
    std::array<std::optional<std::string_view>, StringFieldCount> text;
    text[Title] = sqliteTextView(row, TitleColumn);
    text[Album] = sqliteTextView(row, AlbumColumn);
    text[Artist] = sqliteTextView(row, ArtistColumn);
    text[AlbumArtist] = sqliteTextView(row, AlbumArtistColumn);
    text[TrackDescription] = sqliteTextView(row, DescriptionColumn);
    text[Grouping] = sqliteTextView(row, GroupingColumn);
    text[Composer] = sqliteTextView(row, ComposerColumn);
    text[Comment] = sqliteTextView(row, CommentColumn);
    text[EQSettingText] = sqliteTextView(row, EQPresetColumn);

    // Times are stored as reals in milliseconds and stay milliseconds.
    t.trackLength_ = clampedMilliseconds(row, TotalTimeMs);
    t.startTime_ = clampedMilliseconds(row, StartTimeMs);
    t.endTime_ = clampedMilliseconds(row, StopTimeMs);

    t.trackNumber_ = sqliteUnsigned(row, TrackNumberColumn);
    t.trackTotal_ = sqliteUnsigned(row, TrackCount);
    t.year_ = sqliteUnsigned(row, Year);
    t.BPM_ = static_cast<std::uint16_t>(sqlite3_column_int(row, Bpm));
    t.discNumber_ = sqliteUnsigned(row, DiscNumber);
    t.discTotal_ = sqliteUnsigned(row, DiscCount);
    t.volume_ = sqlite3_column_int(row, RelativeVolume);
    t.mediaType_ = sqliteUnsigned(row, MediaKind);
    t.albumID_ = static_cast<std::uint64_t>(sqlite3_column_int64(row, AlbumPid));

    t.isMovie_ = sqlite3_column_int(row, IsMovie) == 1;
    // The database records the opposite of "checked": a track the user switched off.
    t.checked_ = sqlite3_column_int(row, IsUserDisabled) == 0;
    t.compilation_ = sqlite3_column_int(row, IsCompilation) == 1;
    t.lastModified_ = sqliteTrackDate(row, DateModified);

    if (const auto* video = sub.videoInfo.find(sub.library, pid))
        t.seasonNumber_ = video->seasonNumber;
    if (const auto* genre = sub.genres.find(sub.library, sqlite3_column_int(row, GenreId)))
        if (genre->genre)
            text[Genre] = *genre->genre;  // kept by the sub-table until its next answer
    if (const auto* av = sub.avInfo.find(sub.library, pid)) {
        t.bitrate_ = av->bitrate;
        t.sampleRate_ = av->sampleRate;
        t.soundcheckValue_ = av->soundcheck;
    }
    std::optional<std::string> filePath;
    if (const auto* location = sub.location.find(sub.locations, pid)) {
        t.fileSize_ = location->fileSize;
        t.dateAdded_ = location->dateCreated;
        const std::optional<std::string>& relative = location->location;
        const auto* base = sub.baseLocations.find(sub.locations, location->baseLocationID);
        const std::optional<std::string>* basePath = base ? &base->path : nullptr;
        // The file lies at the mount point, then the base folder (such as
        // "iTunes_Control/Music/F00"), then the file's own name; without both parts the
        // track has no file path at all.
        if (basePath && *basePath && !(*basePath)->empty() && relative && !relative->empty())
            filePath = appendingPathComponent(
                appendingPathComponent(parent ? parent->path() : std::string(), **basePath), *relative);
    }
    if (const auto* stats = sub.stats.find(sub.dynamics, pid)) {
        t.hasBeenPlayed_ = stats->hasBeenPlayed;
        t.lastPlayedTime_ = stats->datePlayed;
        t.playCount_ = stats->playCount;
        t.lastSkippedTime_ = stats->dateSkipped;
        t.skipCount_ = stats->skipCount;
        t.rating_ = stats->rating;
    }
    // Read last on purpose: an album's season number overrides the one of video_info.
    if (const auto* album = sub.albums.find(sub.library, static_cast<sqlite3_int64>(t.albumID_))) {
        t.artworkLink_ = album->artworkItem;
        t.seasonNumber_ = album->seasonNumber;
    }

    if (filePath)
        text[FilePath] = *filePath;
    t.assignStrings(text);
    return track;
}

} // namespace zq
