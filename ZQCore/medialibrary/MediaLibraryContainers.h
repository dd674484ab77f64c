#pragma once

// The playlists of a MediaLibrary.sqlitedb: one per row of container that is a playlist, of the
// class the row calls for (the rows have the columns of the older SQLite library's container
// table, so the same row rules apply once a phone's ways are allowed for: smart columns on every
// row, the purchased list's own kind, the device's own list as the master playlist), filled in
// order, duplicates kept, and linked into their folders.

#include "ZQCore/model/Playlist.h"
#include "ZQCore/model/TrackLibrary.h"
#include "ZQCore/model/iPodTrack.h"

#include <functional>
#include <memory>
#include <span>
#include <vector>
#include <string>
#include <unordered_map>

struct sqlite3;

namespace zq {

class MediaLibrarySchema;

/// The item pids of a container_items blob, in order: little-endian signed 64-bit values, as
/// phones of the iOS 8 era pack a container's members. A tail shorter than eight bytes is
/// damaged and left out.
std::vector<std::int64_t> packedItemPids(std::span<const std::uint8_t> blob);

class MediaLibraryContainers {
public:
    /// `warn` hears of what could not be read and is left out (the members of every playlist,
    /// when no table of them can be read).
    MediaLibraryContainers(sqlite3* db, const MediaLibrarySchema& schema,
                           std::function<void(const std::string&)> warn = [](const std::string&) {})
        : db_(db), schema_(schema), warn_(std::move(warn))
    {
    }

    /// The top-level playlists (folder children live in their folders). Rows of the podcast
    /// container are left out: the podcast group is built from the tracks. Throws
    /// "<application identifier>.SQLiteFailed" when the tables cannot be read.
    std::vector<std::shared_ptr<Playlist>> load(const std::unordered_map<std::int64_t, std::shared_ptr<iPodTrack>>& trackByPid,
                               const std::shared_ptr<TrackLibrary>& parent) const;

private:
    /// Fills the playlists of `byID` from whichever table lists members: the packed blobs of
    /// container_items, or rows of container_item, container_items or item_to_container.
    using Members = std::unordered_map<std::shared_ptr<Playlist>, Playlist::Tracks>;
    Members loadMembers(const std::unordered_map<std::uint64_t, std::shared_ptr<Playlist>>& byID,
                        const std::unordered_map<std::int64_t, std::shared_ptr<iPodTrack>>& trackByPid) const;

    sqlite3* db_;
    const MediaLibrarySchema& schema_;
    std::function<void(const std::string&)> warn_;
};

} // namespace zq
