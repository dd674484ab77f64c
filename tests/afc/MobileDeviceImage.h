#pragma once
// The file system of a mobile device for the simulator: the same files as a disk-mode volume,
// under iTunes_Control instead of iPod_Control, and the four SQLite library databases of
// "iTunes Library.itlp" with the tables and columns the loader reads, filled from a short
// description so that every value a test checks is written by the test.

#include "tests/support/DeviceImage.h"

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace zq::test {

/// Lays `spec` out under `root` as a mobile device keeps it (iTunes_Control). Track locations
/// should name ":iTunes_Control:..." paths, and `files` keys "iTunes_Control/...".
inline void writeMobileDevice(const std::string& root, const VolumeSpec& spec)
{
    writeVolume(root, spec);
    namespace fs = std::filesystem;
    const fs::path from = fs::path(root) / "iPod_Control";
    const fs::path to = fs::path(root) / "iTunes_Control";
    fs::create_directories(to);
    for (const auto& entry : fs::directory_iterator(from))
        fs::rename(entry.path(), to / entry.path().filename());
    fs::remove_all(from);
}

struct SQLiteTrackSpec {
    std::int64_t pid = 0;
    std::string title;
    std::string album;
    std::string location;         ///< below the base location, "F00/SONG.mp3"
    std::uint32_t fileSize = 0;
};

struct SQLiteLibrarySpec {
    std::string libraryName = "Anna's iPhone";  ///< the hidden library container's name
    std::string baseLocation = "iTunes_Control/Music";
    std::vector<SQLiteTrackSpec> tracks;
    std::string playlistName = "Favourites";    ///< one playlist holding every track
    bool withItemTable = true;                  ///< false: Library.itdb lacks `item` (the load fails)
    /// Databases to leave out ("Dynamic.itdb", ...).
    std::vector<std::string> missing;
};

namespace detail {

inline void execute(sqlite3* db, const std::string& sql)
{
    char* message = nullptr;
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
        std::string text = message ? message : "?";
        sqlite3_free(message);
        throw std::runtime_error("SQL failed: " + text + " in " + sql);
    }
}

inline std::string quoted(const std::string& text)
{
    std::string out = "'";
    for (char c : text)
        out += c == '\'' ? std::string("''") : std::string(1, c);
    return out + "'";
}

inline void writeDatabase(const std::filesystem::path& path, const std::string& sql)
{
    sqlite3* db = nullptr;
    if (sqlite3_open(path.c_str(), &db) != SQLITE_OK)
        throw std::runtime_error("cannot create " + path.string());
    try {
        // One transaction without syncs: fixtures need not survive a power cut.
        execute(db, "PRAGMA synchronous=OFF; BEGIN;" + sql + "COMMIT;");
    } catch (...) {
        sqlite3_close(db);
        throw;
    }
    sqlite3_close(db);
}

} // namespace detail

/// Writes the four databases into root/iTunes_Control/iTunes/iTunes Library.itlp.
inline void writeSQLiteLibrary(const std::string& root, const SQLiteLibrarySpec& spec)
{
    namespace fs = std::filesystem;
    using detail::quoted;
    const fs::path folder = fs::path(root) / "iTunes_Control" / "iTunes" / "iTunes Library.itlp";
    fs::create_directories(folder);
    auto wanted = [&](const std::string& name) {
        return std::find(spec.missing.begin(), spec.missing.end(), name) == spec.missing.end();
    };

    std::string library =
        "CREATE TABLE container (pid INTEGER, date_created INTEGER, name TEXT, parent_pid INTEGER, is_hidden INTEGER,"
        " smart_is_folder INTEGER, smart_is_dynamic INTEGER, smart_is_filtered INTEGER, smart_is_genius INTEGER,"
        " smart_enabled_only INTEGER, smart_is_limited INTEGER, smart_limit_kind INTEGER, smart_limit_order INTEGER,"
        " smart_limit_value INTEGER, smart_reverse_limit_order INTEGER, smart_criteria BLOB, distinguished_kind INTEGER);"
        "CREATE TABLE item_to_container (item_pid INTEGER, container_pid INTEGER, physical_order INTEGER);"
        "CREATE TABLE podcast_info (item_pid INTEGER);"
        "CREATE TABLE video_info (item_pid INTEGER, season_number INTEGER);"
        "CREATE TABLE genre_map (id INTEGER, genre TEXT);"
        "CREATE TABLE avformat_info (item_pid INTEGER, bit_rate INTEGER, sample_rate INTEGER,"
        " volume_normalization_energy INTEGER);"
        "CREATE TABLE album (pid INTEGER, artwork_item_pid INTEGER, season_number INTEGER);"
        "INSERT INTO container (pid, date_created, name, parent_pid, is_hidden, distinguished_kind) VALUES (1, 0, " +
        quoted(spec.libraryName) + ", 0, 1, 0);"
        "INSERT INTO container (pid, date_created, name, parent_pid, is_hidden, distinguished_kind) VALUES (2, 100, " +
        quoted(spec.playlistName) + ", 0, 0, 0);";
    if (spec.withItemTable)
        library +=
            "CREATE TABLE item (pid INTEGER, title TEXT, album TEXT, artist TEXT, album_artist TEXT, description TEXT,"
            " grouping TEXT, composer TEXT, comment TEXT, eq_preset TEXT, total_time_ms REAL, track_number INTEGER,"
            " track_count INTEGER, year INTEGER, start_time_ms REAL, stop_time_ms REAL, bpm INTEGER, disc_number INTEGER,"
            " disc_count INTEGER, relative_volume INTEGER, media_kind INTEGER, is_movie INTEGER, album_pid INTEGER,"
            " date_modified INTEGER, is_user_disabled INTEGER, is_compilation INTEGER, genre_id INTEGER);";
    std::string locations = "CREATE TABLE location (item_pid INTEGER, base_location_id INTEGER, location TEXT,"
                            " date_created INTEGER, file_size INTEGER);"
                            "CREATE TABLE base_location (id INTEGER, path TEXT);"
                            "INSERT INTO base_location VALUES (1, " + quoted(spec.baseLocation) + ");";
    std::string dynamics = "CREATE TABLE item_stats (item_pid INTEGER, has_been_played INTEGER, date_played INTEGER,"
                           " play_count_user INTEGER, play_count_recent INTEGER, date_skipped INTEGER,"
                           " skip_count_user INTEGER, skip_count_recent INTEGER, user_rating INTEGER,"
                           " user_rating_common INTEGER);";
    std::int64_t order = 0;
    for (const auto& track : spec.tracks) {
        const std::string pid = std::to_string(track.pid);
        if (spec.withItemTable)
            library += "INSERT INTO item (pid, title, album, total_time_ms, media_kind, is_user_disabled) VALUES (" + pid +
                       ", " + quoted(track.title) + ", " + quoted(track.album) + ", 180000, 1, 0);";
        library += "INSERT INTO item_to_container VALUES (" + pid + ", 2, " + std::to_string(order++) + ");";
        locations += "INSERT INTO location VALUES (" + pid + ", 1, " + quoted(track.location) + ", 0, " +
                     std::to_string(track.fileSize) + ");";
        dynamics += "INSERT INTO item_stats VALUES (" + pid + ", 1, 0, 3, 0, 0, 0, 0, 80, 0);";
    }

    if (wanted("Library.itdb"))
        detail::writeDatabase(folder / "Library.itdb", library);
    if (wanted("Extras.itdb"))
        detail::writeDatabase(folder / "Extras.itdb", "CREATE TABLE chapter (item_pid INTEGER);");
    if (wanted("Locations.itdb"))
        detail::writeDatabase(folder / "Locations.itdb", locations);
    if (wanted("Dynamic.itdb"))
        detail::writeDatabase(folder / "Dynamic.itdb", dynamics);
}

} // namespace zq::test
