#include "ZQCore/medialibrary/MediaLibraryContainers.h"

#include "ZQCore/medialibrary/MediaLibrarySchema.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"

#include <sqlite3.h>

#include <algorithm>
#include <iterator>
#include <unordered_set>
#include <vector>

namespace zq {

namespace {

// The podcast container (10 in the earliest layouts, 11 on phones of today), whose episodes are
// grouped by show from the tracks instead; and the purchased-items container, whose kind
// changed from the SQLite library's 19 to 20.
constexpr int kPodcastsKinds[] = {10, 11};
constexpr int kPurchasedKind = 19;
constexpr int kPhonePurchasedKind = 20;

enum Column { Kind = 16, IsPrimary = 17 };

} // namespace

std::vector<std::int64_t> packedItemPids(std::span<const std::uint8_t> blob)
{
    std::vector<std::int64_t> pids;
    pids.reserve(blob.size() / 8);
    for (std::size_t at = 0; at + 8 <= blob.size(); at += 8) {
        std::uint64_t value = 0;
        for (int i = 7; i >= 0; --i)
            value = value << 8 | blob[at + static_cast<std::size_t>(i)];
        pids.push_back(static_cast<std::int64_t>(value));
    }
    return pids;
}

std::vector<std::shared_ptr<Playlist>> MediaLibraryContainers::load(
    const std::unordered_map<std::int64_t, std::shared_ptr<iPodTrack>>& trackByPid,
    const std::shared_ptr<TrackLibrary>& parent) const
{
    std::vector<std::shared_ptr<Playlist>> playlists;
    if (!schema_.hasTable("container"))
        return playlists;

    // The row in the column order the playlist factory reads; a column this release lacks is a
    // neutral value (no date would drop every row, so a missing date column reads as 0).
    auto column = [&](std::initializer_list<const char*> names, const char* absent) {
        auto found = schema_.firstColumn("container", names);
        return found ? sqlIdentifier(*found) : std::string(absent);
    };
    const std::string key = column({"container_pid", "pid"}, "ROWID");
    const std::string hidden = column({"is_hidden"}, "0"), kind = column({"distinguished_kind"}, "0"),
                      criteria = column({"smart_criteria"}, "NULL"), dynamic = column({"smart_is_dynamic"}, "NULL"),
                      genius = column({"smart_is_genius"}, "0");
    // Phones keep the smart columns on every row (0 where a list is not smart): a list is smart
    // when it has rules or updates itself, and a Genius list is a plain list of its members.
    const std::string smart = "CASE WHEN coalesce(" + genius + ", 0) != 1 AND (length(" + criteria + ") > 0 OR " +
                              dynamic + " = 1) THEN coalesce(" + dynamic + ", 0) ELSE NULL END";
    // The purchased-items list is shown whatever its hidden flag says.
    const std::string purchased = kind + " IN (" + std::to_string(kPurchasedKind) + ", " +
                                  std::to_string(kPhonePurchasedKind) + ")";
    // The device's own list (every track of the device, named after it) is the library's master
    // playlist: the one db_info names, or else the first hidden row of kind 0.
    const std::string primary =
        schema_.has("db_info", "primary_container_pid")
            ? key + " = (SELECT primary_container_pid FROM db_info LIMIT 1)"
            : key + " = (SELECT " + key + " FROM \"container\" WHERE " + hidden + " = 1 AND " + kind +
                  " = 0 ORDER BY ROWID LIMIT 1)";
    const std::string select =
        "SELECT " + key + ", " + column({"date_created"}, "0") + ", " + column({"name"}, "NULL") + ", " +
        column({"parent_pid"}, "0") + ", CASE WHEN " + purchased + " THEN 0 ELSE " + hidden + " END, " +
        column({"smart_is_folder"}, "0") + ", " + smart + ", " + column({"smart_is_filtered"}, "0") + ", " + genius +
        ", " + column({"smart_enabled_only"}, "0") + ", " + column({"smart_is_limited"}, "0") + ", " +
        column({"smart_limit_kind"}, "0") + ", " + column({"smart_limit_order"}, "0") + ", " +
        column({"smart_limit_value"}, "0") + ", " + column({"smart_reverse_limit_order"}, "0") + ", " + criteria +
        ", CASE WHEN " + purchased + " THEN " + std::to_string(kPurchasedKind) + " ELSE " + kind + " END, " +
        "coalesce(" + primary + ", 0) FROM \"container\"";

    std::unordered_map<std::uint64_t, std::shared_ptr<Playlist>> byID;
    std::unordered_map<std::uint64_t, std::shared_ptr<PlaylistFolder>> folderByID;
    {
        SQLiteStatement rows(db_, select.c_str());
        int status;
        while ((status = sqlite3_step(rows.handle())) == SQLITE_ROW) {
            const int rowKind = sqlite3_column_int(rows.handle(), Kind);
            if (std::find(std::begin(kPodcastsKinds), std::end(kPodcastsKinds), rowKind) != std::end(kPodcastsKinds))
                continue;
            std::shared_ptr<Playlist> playlist;
            if (sqlite3_column_int(rows.handle(), IsPrimary) == 1) {
                auto name = sqliteText(rows.handle(), 2);
                if (name && name->empty())
                    name.reset();
                playlist = Playlist::initMaster(name, static_cast<std::uint64_t>(sqlite3_column_int64(rows.handle(), 0)),
                                                Date(static_cast<double>(sqlite3_column_int(rows.handle(), 1))));
            } else {
                playlist = Playlist::initWithSQLiteRow(rows.handle(), parent);
            }
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

    // A table of members that cannot be read costs the members, not the playlists.
    try {
        for (auto& [playlist, members] : loadMembers(byID, trackByPid))
            playlist->addTracks(std::move(members));
    } catch (const Exception& error) {
        warn_("The playlists' tracks could not be read from MediaLibrary.sqlitedb: " + error.reason());
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

MediaLibraryContainers::Members MediaLibraryContainers::loadMembers(
    const std::unordered_map<std::uint64_t, std::shared_ptr<Playlist>>& byID,
    const std::unordered_map<std::int64_t, std::shared_ptr<iPodTrack>>& trackByPid) const
{
    Members result;
    auto add = [&](const std::shared_ptr<Playlist>& playlist, std::int64_t pid) {
        auto track = trackByPid.find(pid);
        if (track != trackByPid.end())
            result[playlist].push_back(track->second);
    };

    // Phones of the iOS 8 era keep each container's members as one packed blob; the
    // item_to_container table that presents them is virtual, and its module only the phone has.
    if (schema_.has("container_items", "item_pid_data") && schema_.has("container_items", "container_pid")) {
        SQLiteStatement rows(db_, "SELECT container_pid, item_pid_data FROM container_items");
        int status;
        while ((status = sqlite3_step(rows.handle())) == SQLITE_ROW) {
            auto playlist = byID.find(static_cast<std::uint64_t>(sqlite3_column_int64(rows.handle(), 0)));
            if (playlist == byID.end())
                continue;
            const auto* blob = static_cast<const std::uint8_t*>(sqlite3_column_blob(rows.handle(), 1));
            const int bytes = sqlite3_column_bytes(rows.handle(), 1);
            for (std::int64_t pid : packedItemPids(blob ? std::span(blob, static_cast<std::size_t>(bytes))
                                                        : std::span<const std::uint8_t>()))
                add(playlist->second, pid);
        }
        if (status != SQLITE_DONE)
            throwSQLiteFailed(db_);
        return result;
    }

    // Others list them a row each, in the order of their position column.
    const auto table = schema_.firstTable({"container_item", "container_items", "item_to_container"});
    if (!table || !schema_.has(*table, "container_pid") || !schema_.has(*table, "item_pid")) {
        for (const char* name : {"container_item", "container_items", "item_to_container"})
            if (auto unreadable = schema_.unreadableTables().find(name); unreadable != schema_.unreadableTables().end())
                warn_("The playlists' tracks could not be read from MediaLibrary.sqlitedb: its table " +
                      unreadable->first + " cannot be read (" + unreadable->second + ").");
        return result;
    }
    const auto position = schema_.firstColumn(*table, {"position", "physical_order"});
    const std::string members = "SELECT container_pid, item_pid FROM " + sqlIdentifier(*table) +
                                " ORDER BY container_pid, " +
                                (position ? sqlIdentifier(*position) + ", " : std::string()) + "ROWID";
    SQLiteStatement rows(db_, members.c_str());
    int status;
    std::shared_ptr<Playlist> current;
    std::uint64_t currentID = 0;
    bool known = false;
    while ((status = sqlite3_step(rows.handle())) == SQLITE_ROW) {
        const auto containerID = static_cast<std::uint64_t>(sqlite3_column_int64(rows.handle(), 0));
        if (!known || containerID != currentID) {
            auto found = byID.find(containerID);
            current = found != byID.end() ? found->second : nullptr;
            currentID = containerID;
            known = true;
        }
        if (current)
            add(current, sqlite3_column_int64(rows.handle(), 1));
    }
    if (status != SQLITE_DONE)
        throwSQLiteFailed(db_);
    return result;
}

} // namespace zq
