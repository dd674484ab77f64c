// The SQLite library writer behind writeSQLiteLibrary: the four databases of
// "iTunes Library.itlp", from the same description the iTunesDB writer takes.

#include "tools/zq-make-sample/DeviceImage.h"

#include "ZQCore/foundation/Date.h"

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <stdexcept>

namespace zq::sample {

namespace {

namespace fs = std::filesystem;

// The kind iTunes gives the hidden container of podcasts.
constexpr int kPodcastsKind = 10;

// ---- schemas: the columns the framework reads, and the further ones iTunes keeps ---------------

constexpr const char* kLibrarySchema = R"SQL(
CREATE TABLE version_info (id INTEGER PRIMARY KEY, major INTEGER, minor INTEGER, compatibility INTEGER DEFAULT 0,
  update_level INTEGER DEFAULT 0, device_update_level INTEGER DEFAULT 0, platform INTEGER DEFAULT 0);
CREATE TABLE db_info (pid INTEGER NOT NULL, primary_container_pid INTEGER, media_folder_url TEXT,
  audio_language INTEGER, subtitle_language INTEGER, genius_cuid TEXT, bib BLOB, rib BLOB, PRIMARY KEY (pid));
CREATE TABLE genre_map (id INTEGER NOT NULL, genre TEXT NOT NULL UNIQUE, genre_order INTEGER DEFAULT 0,
  PRIMARY KEY (id));
CREATE TABLE item (pid INTEGER NOT NULL, media_kind INTEGER DEFAULT 0, date_modified INTEGER DEFAULT 0,
  year INTEGER DEFAULT 0, is_compilation INTEGER DEFAULT 0, remember_bookmark INTEGER DEFAULT 0,
  exclude_from_shuffle INTEGER DEFAULT 0, artwork_status INTEGER DEFAULT 0, artwork_cache_id INTEGER DEFAULT 0,
  start_time_ms REAL DEFAULT 0, stop_time_ms REAL DEFAULT 0, total_time_ms REAL DEFAULT 0,
  total_burn_time_ms REAL, track_number INTEGER DEFAULT 0, track_count INTEGER DEFAULT 0,
  disc_number INTEGER DEFAULT 0, disc_count INTEGER DEFAULT 0, bpm INTEGER DEFAULT 0,
  relative_volume INTEGER, eq_preset TEXT, radio_stream_status TEXT, genius_id INTEGER DEFAULT 0,
  genre_id INTEGER DEFAULT 0, category_id INTEGER DEFAULT 0, album_pid INTEGER DEFAULT 0,
  artist_pid INTEGER DEFAULT 0, composer_pid INTEGER DEFAULT 0, title TEXT, artist TEXT, album TEXT,
  album_artist TEXT, composer TEXT, sort_title TEXT, sort_artist TEXT, sort_album TEXT,
  sort_album_artist TEXT, sort_composer TEXT, title_order INTEGER, artist_order INTEGER,
  album_order INTEGER, genre_order INTEGER, composer_order INTEGER, album_artist_order INTEGER,
  album_by_artist_order INTEGER, series_name_order INTEGER, comment TEXT, grouping TEXT,
  description TEXT, description_long TEXT, collection_description TEXT, copyright TEXT,
  track_artist_pid INTEGER DEFAULT 0, physical_order INTEGER, has_lyrics INTEGER DEFAULT 0,
  date_released INTEGER DEFAULT 0, is_song INTEGER DEFAULT 0, is_audio_book INTEGER DEFAULT 0,
  is_music_video INTEGER DEFAULT 0, is_movie INTEGER DEFAULT 0, is_tv_show INTEGER DEFAULT 0,
  is_home_video INTEGER DEFAULT 0, is_ringtone INTEGER DEFAULT 0, is_tone INTEGER DEFAULT 0,
  is_voice_memo INTEGER DEFAULT 0, is_book INTEGER DEFAULT 0, is_rental INTEGER DEFAULT 0,
  is_itunes_u INTEGER DEFAULT 0, is_digital_booklet INTEGER DEFAULT 0, is_podcast INTEGER DEFAULT 0,
  date_updated INTEGER DEFAULT 0, unknown_int1 INTEGER DEFAULT 0, is_user_disabled INTEGER DEFAULT 0,
  is_checked_out INTEGER DEFAULT 0, PRIMARY KEY (pid));
CREATE INDEX item_idx_album ON item (album_pid);
CREATE TABLE container (pid INTEGER NOT NULL, distinguished_kind INTEGER, date_created INTEGER,
  date_modified INTEGER, name TEXT, name_order INTEGER, parent_pid INTEGER, media_kinds INTEGER,
  workout_template_id INTEGER, is_hidden INTEGER, description TEXT, smart_is_folder INTEGER,
  smart_is_dynamic INTEGER, smart_is_filtered INTEGER, smart_is_genius INTEGER,
  smart_enabled_only INTEGER, smart_is_limited INTEGER, smart_limit_kind INTEGER,
  smart_limit_order INTEGER, smart_evaluation_order INTEGER, smart_limit_value INTEGER,
  smart_reverse_limit_order INTEGER, smart_criteria BLOB, description_long TEXT, PRIMARY KEY (pid));
CREATE TABLE item_to_container (item_pid INTEGER, container_pid INTEGER, physical_order INTEGER,
  shuffle_order INTEGER);
CREATE INDEX item_to_container_idx ON item_to_container (container_pid, physical_order);
CREATE TABLE podcast_info (item_pid INTEGER NOT NULL, date_released INTEGER DEFAULT 0, external_guid TEXT,
  feed_url TEXT, feed_keywords TEXT, PRIMARY KEY (item_pid));
CREATE TABLE video_info (item_pid INTEGER NOT NULL, has_alternate_audio INTEGER, has_subtitles INTEGER,
  characteristics_valid INTEGER, has_closed_captions INTEGER, is_self_contained INTEGER,
  is_compressed INTEGER, is_anamorphic INTEGER, season_number INTEGER, audio_language INTEGER,
  audio_track_index INTEGER, audio_track_id INTEGER, subtitle_language INTEGER,
  subtitle_track_index INTEGER, subtitle_track_id INTEGER, series_name TEXT, sort_series_name TEXT,
  episode_id TEXT, episode_sort_id INTEGER, network_name TEXT, extended_content_rating TEXT,
  movie_info TEXT, PRIMARY KEY (item_pid));
CREATE TABLE avformat_info (item_pid INTEGER NOT NULL, sub_id INTEGER NOT NULL DEFAULT 0,
  audio_format INTEGER, bit_rate INTEGER DEFAULT 0, channels INTEGER DEFAULT 0,
  sample_rate REAL DEFAULT 0, duration INTEGER, gapless_heuristic_info INTEGER,
  gapless_encoding_delay INTEGER, gapless_encoding_drain INTEGER, gapless_last_frame_resynch INTEGER,
  analysis_inhibit_flags INTEGER, audio_fingerprint INTEGER, volume_normalization_energy INTEGER,
  PRIMARY KEY (item_pid, sub_id));
CREATE TABLE album (pid INTEGER NOT NULL, kind INTEGER, artwork_status INTEGER, artwork_item_pid INTEGER,
  artist_pid INTEGER, user_rating INTEGER, name TEXT, name_order INTEGER, all_compilations INTEGER,
  feed_url TEXT, season_number INTEGER, PRIMARY KEY (pid));
)SQL";

constexpr const char* kExtrasSchema = R"SQL(
CREATE TABLE chapter (item_pid INTEGER NOT NULL, data BLOB, PRIMARY KEY (item_pid));
CREATE TABLE lyrics (item_pid INTEGER NOT NULL, checksum INTEGER, lyrics TEXT, PRIMARY KEY (item_pid));
)SQL";

constexpr const char* kLocationsSchema = R"SQL(
CREATE TABLE base_location (id INTEGER NOT NULL, path TEXT, PRIMARY KEY (id));
CREATE TABLE location (item_pid INTEGER NOT NULL, sub_id INTEGER NOT NULL DEFAULT 0,
  base_location_id INTEGER DEFAULT 0, location_type INTEGER, location TEXT, extension INTEGER,
  kind_id INTEGER DEFAULT 0, date_created INTEGER DEFAULT 0, file_size INTEGER DEFAULT 0,
  file_creator INTEGER, file_type INTEGER, num_dir_levels_file INTEGER, num_dir_levels_lib INTEGER,
  PRIMARY KEY (item_pid, sub_id));
)SQL";

constexpr const char* kDynamicsSchema = R"SQL(
CREATE TABLE item_stats (item_pid INTEGER NOT NULL, has_been_played INTEGER DEFAULT 0,
  date_played INTEGER DEFAULT 0, play_count_user INTEGER DEFAULT 0, play_count_recent INTEGER DEFAULT 0,
  date_skipped INTEGER DEFAULT 0, skip_count_user INTEGER DEFAULT 0, skip_count_recent INTEGER DEFAULT 0,
  bookmark_time_ms REAL, bookmark_time_ms_common REAL, user_rating INTEGER DEFAULT 0,
  user_rating_common INTEGER DEFAULT 0, rental_expired INTEGER DEFAULT 0, hidden INTEGER DEFAULT 0,
  PRIMARY KEY (item_pid));
)SQL";

// ---- a small writing connection -----------------------------------------------------------------

class Writer {
public:
    explicit Writer(const fs::path& path)
    {
        std::error_code ignored;
        fs::remove(path, ignored);
        if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK)
            fail("open " + path.string());
        exec("PRAGMA journal_mode=DELETE; PRAGMA synchronous=OFF; BEGIN;");
    }
    ~Writer() { sqlite3_close(db_); }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    void exec(const std::string& sql)
    {
        char* message = nullptr;
        if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
            std::string text = message ? message : "unknown error";
            sqlite3_free(message);
            throw std::runtime_error("SQLite writer: " + text + " in: " + sql.substr(0, 200));
        }
    }
    void commit() { exec("COMMIT;"); }

    /// One INSERT prepared once and run per row; bind with the helpers, then run().
    class Insert {
    public:
        Insert(Writer& writer, const char* sql) : writer_(writer)
        {
            if (sqlite3_prepare_v2(writer.db_, sql, -1, &statement_, nullptr) != SQLITE_OK)
                writer.fail(sql);
        }
        ~Insert() { sqlite3_finalize(statement_); }
        Insert(const Insert&) = delete;
        Insert& operator=(const Insert&) = delete;

        Insert& integer(int index, std::int64_t value)
        {
            sqlite3_bind_int64(statement_, index, value);
            return *this;
        }
        Insert& real(int index, double value)
        {
            sqlite3_bind_double(statement_, index, value);
            return *this;
        }
        Insert& text(int index, const std::optional<std::string>& value)
        {
            if (value)
                sqlite3_bind_text(statement_, index, value->data(), static_cast<int>(value->size()), SQLITE_TRANSIENT);
            else
                sqlite3_bind_null(statement_, index);
            return *this;
        }
        Insert& blob(int index, const Data& value)
        {
            sqlite3_bind_blob(statement_, index, value.size() ? static_cast<const void*>(value.bytes()) : "", static_cast<int>(value.size()),
                              SQLITE_TRANSIENT);
            return *this;
        }
        Insert& null(int index)
        {
            sqlite3_bind_null(statement_, index);
            return *this;
        }
        void run()
        {
            if (sqlite3_step(statement_) != SQLITE_DONE)
                writer_.fail("insert");
            sqlite3_reset(statement_);
            sqlite3_clear_bindings(statement_);
        }

    private:
        Writer& writer_;
        sqlite3_stmt* statement_ = nullptr;
    };

private:
    [[noreturn]] void fail(const std::string& what)
    {
        throw std::runtime_error("SQLite writer: " + what + ": " + (db_ ? sqlite3_errmsg(db_) : "no connection"));
    }

    sqlite3* db_ = nullptr;
};

/// Track dates: 1904-based local seconds in the layout given, seconds after 2001-01-01 UTC here.
std::int64_t sqliteDate(std::uint32_t value1904)
{
    if (value1904 == 0)
        return 0;
    return static_cast<std::int64_t>(zq::Date::from1904LocalSeconds(value1904).timeIntervalSinceReferenceDate());
}

std::uint64_t pidOf(const TrackSpec& t) { return t.dbid ? t.dbid : t.trackID; }

/// ":iPod_Control:Music:F00:ABCD.mp3" as folder "iPod_Control/Music/F00" and name "ABCD.mp3".
std::pair<std::string, std::string> splitLocation(const std::string& location)
{
    std::string path = relativePathOfLocation(location);
    std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return {std::string(), path};
    return {path.substr(0, slash), path.substr(slash + 1)};
}

bool omitted(const SQLiteSpec& sqlite, const std::string& name)
{
    return std::find(sqlite.omittedFiles.begin(), sqlite.omittedFiles.end(), name) != sqlite.omittedFiles.end();
}

void runStatements(Writer& writer, const std::vector<std::string>& statements)
{
    for (const auto& sql : statements)
        writer.exec(sql);
}

void writeLibrary(const fs::path& path, const DatabaseSpec& db, const SQLiteSpec& sqlite)
{
    Writer w(path);
    w.exec(kLibrarySchema);
    w.exec("INSERT INTO version_info (id, major, minor) VALUES (1, 1, 11);");

    // Track ID to pid, for playlist items (which name tracks by their 32-bit ID).
    std::map<std::uint32_t, std::uint64_t> pidByTrackID;
    std::map<std::string, std::int64_t> genres;
    {
        Writer::Insert genre(w, "INSERT INTO genre_map (id, genre, genre_order) VALUES (?, ?, ?)");
        for (const auto& t : db.tracks) {
            if (t.genre && !genres.contains(*t.genre)) {
                std::int64_t id = static_cast<std::int64_t>(genres.size()) + 1;
                genres[*t.genre] = id;
                genre.integer(1, id).text(2, t.genre).integer(3, id).run();
            }
        }
    }
    {
        Writer::Insert item(w,
            "INSERT INTO item (pid, media_kind, date_modified, year, is_compilation, start_time_ms, stop_time_ms, "
            "total_time_ms, track_number, track_count, disc_number, disc_count, bpm, relative_volume, eq_preset, "
            "genre_id, album_pid, title, artist, album, album_artist, composer, sort_title, sort_artist, comment, "
            "grouping, description, physical_order, has_lyrics, date_released, is_song, is_movie, is_podcast, "
            "is_user_disabled) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17, "
            "?18, ?19, ?20, ?21, ?22, ?18, ?19, ?23, ?24, ?25, ?26, ?27, ?28, ?29, ?30, ?31, ?32)");
        Writer::Insert video(w, "INSERT INTO video_info (item_pid, season_number, has_subtitles) VALUES (?, ?, 0)");
        Writer::Insert av(w,
            "INSERT INTO avformat_info (item_pid, audio_format, bit_rate, channels, sample_rate, duration, "
            "volume_normalization_energy) VALUES (?, 301, ?, 2, ?, ?, ?)");
        Writer::Insert album(w,
            "INSERT INTO album (pid, kind, artwork_status, artwork_item_pid, name, all_compilations, season_number) "
            "VALUES (?, 2, ?, ?, ?, ?, ?)");
        // One album row per album: the first of its tracks names it, the first with a link
        // gives its artwork (the database keeps artwork per album).
        std::map<std::uint64_t, const TrackSpec*> albumTrack, albumArt;
        for (const auto& t : db.tracks) {
            if (!t.albumID)
                continue;
            albumTrack.emplace(t.albumID, &t);
            if (t.artworkLink)
                albumArt.emplace(t.albumID, &t);
        }
        for (const auto& [id, first] : albumTrack) {
            auto art = albumArt.find(id);
            const std::uint32_t link = art != albumArt.end() ? art->second->artworkLink : 0;
            album.integer(1, static_cast<std::int64_t>(id))
                .integer(2, link ? 1 : 0)
                .integer(3, link)
                .text(4, first->album)
                .integer(5, first->compilation == 1)
                .integer(6, first->seasonNumber)
                .run();
        }
        std::int64_t order = 0;
        for (const auto& t : db.tracks) {
            const std::uint64_t pid = pidOf(t);
            pidByTrackID[t.trackID] = pid;
            const bool podcast = t.mediaType == 4;
            item.integer(1, static_cast<std::int64_t>(pid))
                .integer(2, t.mediaType)
                .integer(3, sqliteDate(t.lastModified))
                .integer(4, t.year)
                .integer(5, t.compilation)
                .real(6, t.startTime)
                .real(7, t.endTime)
                .real(8, t.trackLength)
                .integer(9, t.trackNumber)
                .integer(10, t.trackTotal)
                .integer(11, t.discNumber)
                .integer(12, t.discTotal)
                .integer(13, t.BPM)
                .integer(14, static_cast<std::int32_t>(t.volume))
                .text(15, t.EQSetting)
                .integer(16, t.genre ? genres[*t.genre] : 0)
                .integer(17, t.albumID)
                .text(18, t.title)
                .text(19, t.artist)
                .text(20, t.album)
                .text(21, t.albumArtist)
                .text(22, t.composer)
                .text(23, t.comment)
                .text(24, t.grouping)
                .text(25, t.description)
                .integer(26, ++order)
                .integer(27, t.hasLyrics)
                .integer(28, sqliteDate(t.dateReleased))
                .integer(29, !podcast && !t.isMovie)
                .integer(30, t.isMovie)
                .integer(31, podcast)
                .integer(32, t.checked == 1 ? 0 : 1)
                .run();
            if (t.seasonNumber)
                video.integer(1, static_cast<std::int64_t>(pid)).integer(2, t.seasonNumber).run();
            av.integer(1, static_cast<std::int64_t>(pid))
                .integer(2, t.bitrate)
                .real(3, t.sampleRate)
                .integer(4, t.trackLength)
                .integer(5, t.soundcheckValue)
                .run();
        }
    }
    {
        Writer::Insert container(w,
            "INSERT INTO container (pid, distinguished_kind, date_created, date_modified, name, parent_pid, "
            "media_kinds, is_hidden, smart_is_folder, smart_is_dynamic, smart_is_filtered, smart_is_genius, "
            "smart_enabled_only, smart_is_limited, smart_limit_kind, smart_limit_order, smart_evaluation_order, "
            "smart_limit_value, smart_reverse_limit_order, smart_criteria) VALUES (?1, ?2, ?3, ?3, ?4, ?5, 1, ?6, "
            "?7, ?8, ?9, 0, ?10, ?11, ?12, ?13, 0, ?14, ?15, ?16)");
        Writer::Insert member(w,
            "INSERT INTO item_to_container (item_pid, container_pid, physical_order, shuffle_order) VALUES (?, ?, ?, 0)");
        Writer::Insert episode(w, "INSERT INTO podcast_info (item_pid, feed_url) VALUES (?, ?)");
        for (const auto& p : db.playlists) {
            const bool master = p.master == 1;
            const bool podcasts = p.podcast == 1;
            const bool hidden = master || podcasts;
            container.integer(1, static_cast<std::int64_t>(p.playlistID))
                .integer(2, podcasts ? kPodcastsKind : master ? 0 : p.distinguishedKind)
                .integer(3, static_cast<std::int32_t>(p.creationTimestamp / 1000))
                .text(4, p.name)
                .integer(5, static_cast<std::int64_t>(p.parentID))
                .integer(6, hidden ? 1 : 0)
                .integer(7, p.folder ? 1 : 0);
            if (p.smartPrefs) {
                const auto& s = *p.smartPrefs;
                container.integer(8, s.liveUpdating)
                    .integer(9, s.enableRules)
                    .integer(10, s.matchChecked)
                    .integer(11, s.enableLimits)
                    .integer(12, s.limitType)
                    .integer(13, s.limitSort)
                    .integer(14, s.limitValue)
                    .integer(15, s.reverseLimitSort);
            }
            container.blob(16, p.smartRules ? buildSmartRuleBlob(*p.smartRules) : Data()).run();

            std::int64_t position = 0;
            for (const auto& entry : p.items) {
                if (entry.isGroupHeader)
                    continue;
                auto pid = pidByTrackID.find(entry.trackID);
                std::int64_t itemPid = pid != pidByTrackID.end() ? static_cast<std::int64_t>(pid->second) : entry.trackID;
                member.integer(1, itemPid).integer(2, static_cast<std::int64_t>(p.playlistID)).integer(3, position++).run();
                if (podcasts)
                    episode.integer(1, itemPid).text(2, std::string("http://feeds.example.com/") + std::to_string(itemPid)).run();
            }
        }
    }
    w.exec("INSERT INTO db_info (pid, primary_container_pid, media_folder_url) VALUES (1, "
           "(SELECT pid FROM container WHERE is_hidden = 1 AND distinguished_kind = 0 LIMIT 1), 'iPod_Control/Music');");
    runStatements(w, sqlite.libraryStatements);
    w.commit();
}

void writeExtras(const fs::path& path, const DatabaseSpec& db, const SQLiteSpec& sqlite)
{
    Writer w(path);
    w.exec(kExtrasSchema);
    Writer::Insert lyrics(w, "INSERT INTO lyrics (item_pid, checksum, lyrics) VALUES (?, 0, ?)");
    for (const auto& t : db.tracks)
        if (t.hasLyrics == 1)
            lyrics.integer(1, static_cast<std::int64_t>(pidOf(t))).text(2, std::string("(lyrics)")).run();
    runStatements(w, sqlite.extrasStatements);
    w.commit();
}

void writeLocations(const fs::path& path, const DatabaseSpec& db, const SQLiteSpec& sqlite)
{
    Writer w(path);
    w.exec(kLocationsSchema);
    std::map<std::string, std::int64_t> folders;
    Writer::Insert base(w, "INSERT INTO base_location (id, path) VALUES (?, ?)");
    Writer::Insert location(w,
        "INSERT INTO location (item_pid, base_location_id, location_type, location, extension, kind_id, "
        "date_created, file_size, num_dir_levels_file, num_dir_levels_lib) VALUES (?, ?, 1179208773, ?, 0, 1, ?, ?, 4, 3)");
    for (const auto& t : db.tracks) {
        if (!t.location)
            continue;
        auto [folder, name] = splitLocation(*t.location);
        auto found = folders.find(folder);
        if (found == folders.end()) {
            std::int64_t id = static_cast<std::int64_t>(folders.size()) + 3840;  // iTunes numbers them from 0xF00
            found = folders.emplace(folder, id).first;
            base.integer(1, id).text(2, folder).run();
        }
        location.integer(1, static_cast<std::int64_t>(pidOf(t)))
            .integer(2, found->second)
            .text(3, name)
            .integer(4, sqliteDate(t.dateAdded))
            .integer(5, t.fileSize)
            .run();
    }
    runStatements(w, sqlite.locationsStatements);
    w.commit();
}

void writeDynamics(const fs::path& path, const DatabaseSpec& db, const SQLiteSpec& sqlite)
{
    Writer w(path);
    w.exec(kDynamicsSchema);
    Writer::Insert stats(w,
        "INSERT INTO item_stats (item_pid, has_been_played, date_played, play_count_user, play_count_recent, "
        "date_skipped, skip_count_user, skip_count_recent, user_rating, user_rating_common) "
        "VALUES (?, ?, ?, ?, 0, ?, ?, 0, ?, ?)");
    for (const auto& t : db.tracks)
        stats.integer(1, static_cast<std::int64_t>(pidOf(t)))
            .integer(2, t.hasBeenPlayed)
            .integer(3, sqliteDate(t.lastPlayedTime))
            .integer(4, t.playCount)
            .integer(5, sqliteDate(t.lastSkippedTime))
            .integer(6, t.skipCount)
            .integer(7, t.rating)
            .integer(8, t.rating)
            .run();
    runStatements(w, sqlite.dynamicsStatements);
    w.commit();
}

} // namespace

std::string sqliteLibraryFolder(const std::string& root)
{
    return (fs::path(root) / "iPod_Control" / "iTunes" / "iTunes Library.itlp").string();
}

void writeSQLiteLibrary(const std::string& folder, const DatabaseSpec& db, const SQLiteSpec& sqlite)
{
    const fs::path base(folder);
    fs::create_directories(base);
    if (!omitted(sqlite, "Library.itdb"))
        writeLibrary(base / "Library.itdb", db, sqlite);
    if (!omitted(sqlite, "Extras.itdb"))
        writeExtras(base / "Extras.itdb", db, sqlite);
    if (!omitted(sqlite, "Locations.itdb"))
        writeLocations(base / "Locations.itdb", db, sqlite);
    if (!omitted(sqlite, "Dynamic.itdb"))
        writeDynamics(base / "Dynamic.itdb", db, sqlite);
}

} // namespace zq::sample
