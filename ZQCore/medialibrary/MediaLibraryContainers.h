#pragma once

// The playlists of a MediaLibrary.sqlitedb: one per row of container that is a playlist, of the
// class the row calls for (the rows have the columns of the older SQLite library's container
// table, so the same row rules apply), filled from container_item (container_items on older
// releases) in the order of its position column, duplicates kept, and linked into their folders.

#include "ZQCore/device/ZQCoreiPod.h"

#include <memory>
#include <unordered_map>

struct sqlite3;

namespace zq {

class MediaLibrarySchema;

class MediaLibraryContainers {
public:
    MediaLibraryContainers(sqlite3* db, const MediaLibrarySchema& schema) : db_(db), schema_(schema) {}

    /// The top-level playlists (folder children live in their folders). Rows of the podcast
    /// container are left out: the podcast group is built from the tracks. Throws
    /// "<application identifier>.SQLiteFailed" when the tables cannot be read.
    ZQCoreiPod::Playlists load(const std::unordered_map<std::int64_t, std::shared_ptr<iPodTrack>>& trackByPid,
                               const std::shared_ptr<ZQCoreiPod>& parent) const;

private:
    sqlite3* db_;
    const MediaLibrarySchema& schema_;
};

} // namespace zq
