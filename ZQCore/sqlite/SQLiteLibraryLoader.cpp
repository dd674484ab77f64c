// Loading a library from the four SQLite databases of "iTunes Library.itlp".

#include "ZQCore/sqlite/SQLiteLibraryLoader.h"

#include "ZQCore/foundation/IDIndex.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/model/Podcasts.h"
#include "ZQCore/model/TrackArena.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"
#include "ZQCore/sqlite/SQLiteSubRows.h"

#include <fcntl.h>
#include <glib.h>
#include <sqlite3.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include <string>
#include <unordered_map>
#include <unordered_set>

namespace zq {

bool SQLiteLibraryLoader::loadFromLocalSQLiteDatabase(const std::string& library, const std::string& extras,
                                                      const std::string& locations, const std::string& dynamics,
                                                      const std::shared_ptr<TrackLibrary>& self, Contents& contents)
{
    Tracks& tracks_ = contents.tracks;
    Playlists& playlists_ = contents.playlists;
    // All four are opened before any is judged. A database that cannot be opened is not
    // reported as a failure: nothing is loaded and the answer is still yes.
    SQLiteConnection libraryDB(library);
    SQLiteConnection extrasDB(extras);
    SQLiteConnection locationsDB(locations);
    SQLiteConnection dynamicsDB(dynamics);
    if (!libraryDB.valid() || !extrasDB.valid() || !locationsDB.valid() || !dynamicsDB.valid())
        return true;


    // ---- tracks
    // Track by dbid, as an index into the collected tracks: the map is hit once per track and
    // once per membership row, and an index costs no reference-count traffic.
    IDIndex trackByID;
    Tracks collected;
    {
        // The tracks and their strings come from one arena (see TrackArena).
        const TrackArena::Use arena(std::make_shared<TrackArena>());
        SQLiteSubRows subRows(libraryDB.handle(), locationsDB.handle(), dynamicsDB.handle(), true);
        SQLiteStatement items(libraryDB.handle(),
                              "SELECT pid, title, album, artist, album_artist, description, grouping, composer, "
                              "comment, eq_preset, total_time_ms, track_number, track_count, year, start_time_ms, "
                              "stop_time_ms, bpm, disc_number, disc_count, relative_volume, media_kind, is_movie, "
                              "album_pid, date_modified, is_user_disabled, is_compilation, genre_id FROM item");
        while (items.step()) {
            auto track = iPodTrack::initWithSQLiteRow(items.handle(), subRows, self);
            if (!track)
                continue;
            if (collected.size() == collected.capacity()) {
                collected.reserve(collected.size() * 2 + 1024);
                trackByID.reserve(collected.capacity());
            }
            trackByID.assign(track->dbid(), static_cast<std::uint32_t>(collected.size()));
            collected.push_back(std::move(track));
        }
    }
    tracks_ = std::move(collected);

    // ---- playlists, one per container row that is a playlist
    std::unordered_map<std::uint64_t, std::shared_ptr<PlaylistFolder>> folderByID;
    Playlists playlists;
    {
        SQLiteStatement containers(libraryDB.handle(),
                                   "SELECT pid, date_created, name, parent_pid, is_hidden, smart_is_folder, "
                                   "smart_is_dynamic, smart_is_filtered, smart_is_genius, smart_enabled_only, "
                                   "smart_is_limited, smart_limit_kind, smart_limit_order, smart_limit_value, "
                                   "smart_reverse_limit_order, smart_criteria, distinguished_kind FROM container");
        while (containers.step()) {
            auto playlist = Playlist::initWithSQLiteRow(containers.handle(), self);
            if (!playlist)
                continue;
            if (auto folder = std::dynamic_pointer_cast<PlaylistFolder>(playlist))
                folderByID[folder->playlistID()] = folder;
            playlists.push_back(std::move(playlist));
        }
    }
    playlists_ = std::move(playlists);

    // ---- membership, in the order the database returns the rows (physical_order is read and
    // not used), for every kind of playlist
    {
        SQLiteStatement members(libraryDB.handle(),
                                "SELECT item_pid, physical_order FROM item_to_container WHERE container_pid=?");
        for (const auto& playlist : playlists_) {
            sqlite3_bind_int64(members.handle(), 1, static_cast<sqlite3_int64>(playlist->playlistID()));
            while (members.step()) {
                const std::uint32_t found =
                    trackByID.find(static_cast<std::uint64_t>(sqlite3_column_int64(members.handle(), 0)));
                if (found != IDIndex::kNone)
                    playlist->addTrack(tracks_[found]);
            }
            members.reset();
        }
    }

    // ---- folders: one pass links every child to its folder (folders in folders included);
    // only top-level playlists stay in the list. A parent that is not a folder leaves the
    // playlist at the top.
    {
        // A folder's tracks and description recurse through its children, so a file whose
        // parent ids run in a circle (a folder inside itself) or nest absurdly deep must not be
        // linked that way: such a playlist stays at the top level instead.
        constexpr std::size_t kMaxFolderDepth = 64;
        auto canHold = [&](const PlaylistFolder* folder, const Playlist& child) {
            for (std::size_t depth = 0; depth < kMaxFolderDepth; ++depth) {
                if (folder == &child || folder->playlistID() == child.playlistID())
                    return false;
                if (folder->parentID() == 0)
                    return true;
                auto up = folderByID.find(folder->parentID());
                if (up == folderByID.end())
                    return true;
                folder = up->second.get();
            }
            return false;
        };
        std::unordered_set<const Playlist*> children;
        for (const auto& playlist : playlists_) {
            if (playlist->parentID() == 0)
                continue;
            auto folder = folderByID.find(playlist->parentID());
            if (folder == folderByID.end() || !canHold(folder->second.get(), *playlist))
                continue;
            folder->second->addPlaylist(playlist);
            children.insert(playlist.get());
        }
        std::erase_if(playlists_, [&](const std::shared_ptr<Playlist>& p) { return children.contains(p.get()); });
    }
    folderByID.clear();

    // ---- the podcast group: one show per album, in the order the episodes come
    {
        SQLiteStatement episodes(libraryDB.handle(), "SELECT item_pid FROM podcast_info");
        auto group = Podcasts::init();
        std::unordered_map<std::string, Playlist*> showByName;
        while (episodes.step()) {
            const auto pid = static_cast<std::uint64_t>(sqlite3_column_int64(episodes.handle(), 0));
            // Every loaded track is in the map, so a miss there is a miss in the track list too
            // (searching the list again would only cost time on a file full of stray rows).
            std::shared_ptr<iPodTrack> track;
            if (const std::uint32_t found = trackByID.find(pid); found != IDIndex::kNone)
                track = tracks_[found];
            const std::optional<std::string> album = track ? track->album() : std::nullopt;

            if (!album)
                continue;
            // By name through a map: a file of many shows must not cost shows x episodes.
            if (auto found = showByName.find(*album); found != showByName.end()) {
                found->second->addTrack(track);
                continue;
            }
            auto show = Playlist::initWithName(album);
            show->addTrack(track);
            showByName.emplace(*album, show.get());
            group->addPodcast(show);
        }
        if (!group->podcasts().empty())
            contents.podcastGroup = group;
    }
    return true;
}

bool SQLiteLibraryLoader::loadFromDevice(const DeviceFiles& files, const std::string& folder,
                                         const std::shared_ptr<TrackLibrary>& parent, Contents& contents)
{
    namespace fs = std::filesystem;
    static constexpr std::array<const char*, 4> kNames = {"Library.itdb", "Extras.itdb", "Locations.itdb",
                                                          "Dynamic.itdb"};
    if (!files.fileExists(folder))
        return false;
    std::array<std::string, 4> remote;
    for (std::size_t i = 0; i < remote.size(); ++i) {
        remote[i] = folder + "/" + kNames[i];
        if (!files.fileExists(remote[i]))
            return false;
    }

    // SQLite opens the files by their paths: where the device's files are files of this
    // computer, each is checked to be one of the device's and opened as it is.
    std::array<std::string, 4> local;
    bool inPlace = true;
    for (std::size_t i = 0; i < local.size() && inPlace; ++i) {
        auto path = files.localPath(remote[i]);
        inPlace = path.has_value();
        if (path)
            local[i] = *path;
    }
    if (inPlace)
        return loadFromLocalSQLiteDatabase(local[0], local[1], local[2], local[3], parent, contents);
    // Otherwise SQLite needs copies (and a file of a volume that leads out of it, which is never
    // read, fails its copy): a folder of their own, which goes again on every way out
    // (a failed copy, a damaged database, a device that left).
    gchar* uuid = g_uuid_string_random();
    const fs::path copies = fs::path(g_get_tmp_dir()) / uuid;
    g_free(uuid);
    std::error_code ignored;
    if (!fs::create_directory(copies, ignored))
        return false;
    struct Remover {
        fs::path folder;
        ~Remover()
        {
            std::error_code ignored;
            fs::remove_all(folder, ignored);
        }
    } remover{copies};

    bool copied = true;
    for (std::size_t i = 0; i < local.size(); ++i) {
        local[i] = (copies / kNames[i]).string();
        const int out = ::open(local[i].c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (out < 0) {
            copied = false;
            continue;
        }
        const FileCopyResult result = files.copyFile(remote[i], out);
        if (::close(out) != 0 || !result.completed)
            copied = false;
    }
    return copied && loadFromLocalSQLiteDatabase(local[0], local[1], local[2], local[3], parent, contents);
}

} // namespace zq
