#include "ZQCore/medialibrary/MediaLibraryContainers.h"

#include "ZQCore/medialibrary/MediaLibrarySchema.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"

#include <sqlite3.h>

#include <unordered_set>

namespace zq {

namespace {

// The podcast container: its episodes are grouped by show from the tracks instead.
constexpr int kPodcastsKind = 10;

} // namespace

ZQCoreiPod::Playlists MediaLibraryContainers::load(
    const std::unordered_map<std::int64_t, std::shared_ptr<iPodTrack>>& trackByPid,
    const std::shared_ptr<ZQCoreiPod>& parent) const
{
    ZQCoreiPod::Playlists playlists;
    if (!schema_.hasTable("container"))
        return playlists;

    // The row in the column order the playlist factory reads; a column this release lacks is a
    // neutral value (no date would drop every row, so a missing date column reads as 0).
    auto column = [&](std::initializer_list<const char*> names, const char* absent) {
        auto found = schema_.firstColumn("container", names);
        return found ? sqlIdentifier(*found) : std::string(absent);
    };
    const std::string key = column({"container_pid", "pid"}, "ROWID");
    const std::string select =
        "SELECT " + key + ", " + column({"date_created"}, "0") + ", " + column({"name"}, "NULL") + ", " +
        column({"parent_pid"}, "0") + ", " + column({"is_hidden"}, "0") + ", " + column({"smart_is_folder"}, "0") +
        ", " + column({"smart_is_dynamic"}, "NULL") + ", " + column({"smart_is_filtered"}, "0") + ", " +
        column({"smart_is_genius"}, "0") + ", " + column({"smart_enabled_only"}, "0") + ", " +
        column({"smart_is_limited"}, "0") + ", " + column({"smart_limit_kind"}, "0") + ", " +
        column({"smart_limit_order"}, "0") + ", " + column({"smart_limit_value"}, "0") + ", " +
        column({"smart_reverse_limit_order"}, "0") + ", " + column({"smart_criteria"}, "NULL") + ", " +
        column({"distinguished_kind"}, "0") + " FROM \"container\"";

    std::unordered_map<std::uint64_t, std::shared_ptr<Playlist>> byID;
    std::unordered_map<std::uint64_t, std::shared_ptr<PlaylistFolder>> folderByID;
    {
        SQLiteStatement rows(db_, select.c_str());
        int status;
        while ((status = sqlite3_step(rows.handle())) == SQLITE_ROW) {
            if (sqlite3_column_int(rows.handle(), 16) == kPodcastsKind)
                continue;
            auto playlist = Playlist::initWithSQLiteRow(rows.handle(), parent);
            if (!playlist)
                continue;
            if (!byID.emplace(playlist->playlistID(), playlist).second)
                continue;  // a second row with the same id would have no members of its own
            if (auto folder = std::dynamic_pointer_cast<PlaylistFolder>(playlist))
                folderByID[folder->playlistID()] = folder;
            playlists.push_back(std::move(playlist));
        }
        if (status != SQLITE_DONE)
            throwSQLiteFailed(db_);
    }

    // ---- members, in position order
    if (auto table = schema_.firstTable({"container_item", "container_items", "item_to_container"})) {
        const auto position = schema_.firstColumn(*table, {"position", "physical_order"});
        if (schema_.has(*table, "container_pid") && schema_.has(*table, "item_pid")) {
            const std::string members = "SELECT container_pid, item_pid FROM " + sqlIdentifier(*table) +
                                        " ORDER BY container_pid, " +
                                        (position ? sqlIdentifier(*position) + ", " : std::string()) + "ROWID";
            SQLiteStatement rows(db_, members.c_str());
            int status;
            std::shared_ptr<Playlist> current;
            std::uint64_t currentID = 0;
            while ((status = sqlite3_step(rows.handle())) == SQLITE_ROW) {
                const auto containerID = static_cast<std::uint64_t>(sqlite3_column_int64(rows.handle(), 0));
                if (!current || containerID != currentID) {
                    auto found = byID.find(containerID);
                    current = found != byID.end() ? found->second : nullptr;
                    currentID = containerID;
                    if (!current)
                        continue;
                }
                auto track = trackByPid.find(sqlite3_column_int64(rows.handle(), 1));
                if (track != trackByPid.end())
                    current->addTrack(track->second);
            }
            if (status != SQLITE_DONE)
                throwSQLiteFailed(db_);
        }
    }

    // ---- folders: a playlist goes into the folder its parent id names, unless that would put a
    // folder inside itself (ids in a circle) or nest absurdly deep; then it stays at the top.
    constexpr std::size_t kMaxFolderDepth = 64;
    auto canHold = [&](const PlaylistFolder* folder, const Playlist& child) {
        for (std::size_t depth = 0; depth < kMaxFolderDepth; ++depth) {
            if (folder->playlistID() == child.playlistID())
                return false;
            auto up = folder->parentID() ? folderByID.find(folder->parentID()) : folderByID.end();
            if (up == folderByID.end())
                return true;
            folder = up->second.get();
        }
        return false;
    };
    std::unordered_set<const Playlist*> children;
    for (const auto& playlist : playlists) {
        auto folder = playlist->parentID() ? folderByID.find(playlist->parentID()) : folderByID.end();
        if (folder == folderByID.end() || !canHold(folder->second.get(), *playlist))
            continue;
        folder->second->addPlaylist(playlist);
        children.insert(playlist.get());
    }
    std::erase_if(playlists, [&](const std::shared_ptr<Playlist>& p) { return children.contains(p.get()); });
    return playlists;
}

} // namespace zq
