#pragma once

#include "ZQCore/foundation/Export.h"
#include "ZQCore/model/Playlist.h"

namespace zq {

/// A folder of playlists (of any kind, folders included). Its tracks are its children's
/// tracks, child after child. Observable key "playlists" (addPlaylist, removePlaylist).
class ZQ_EXPORT PlaylistFolder : public Playlist {
public:
    const char* kind() const override { return "folder"; }
    static std::shared_ptr<PlaylistFolder> initWithName(const std::optional<std::string>& name);
    /// A folder (still empty) from a container row of the SQLite library.
    static std::shared_ptr<PlaylistFolder> initWithSQLiteRow(sqlite3_stmt* row, const std::shared_ptr<TrackLibrary>& parent);

    const std::vector<std::shared_ptr<Playlist>>& playlists() const { return playlists_; }
    /// Adds a child unless it is already there (then nothing is announced). A null child, the
    /// folder itself and a folder that holds this one are refused the same way.
    void addPlaylist(const std::shared_ptr<Playlist>& child);
    /// Whether `playlist` is among this folder's children or theirs, at any depth.
    bool holds(const Playlist& playlist) const;
    /// Removes a child if it is there (otherwise nothing is announced).
    void removePlaylist(const std::shared_ptr<Playlist>& child);

    Tracks tracks() const override;
    std::size_t trackCount() const override;
    /// "Playlist folder: <name>, ID: <id>, Children:\n" and the children's descriptions.
    std::string description() const override;

protected:
    explicit PlaylistFolder(const std::optional<std::string>& name) : Playlist(name) {}

private:
    std::vector<std::shared_ptr<Playlist>> playlists_;
};

} // namespace zq
