#pragma once

#include "ZQCore/foundation/Export.h"
#include "ZQCore/model/Playlist.h"

namespace zq {

/// The list of purchased items. Never the master or the podcast playlist, whatever its record
/// says.
class ZQ_EXPORT PurchasedPlaylist : public Playlist {
public:
    const char* kind() const override { return "purchased"; }
    static std::shared_ptr<PurchasedPlaylist> initWithName(const std::optional<std::string>& name);
    /// The purchased list from a container row of the SQLite library.
    static std::shared_ptr<PurchasedPlaylist> initWithSQLiteRow(sqlite3_stmt* row,
                                                                const std::shared_ptr<TrackLibrary>& parent);

    bool isMaster() const override { return false; }
    bool isPodcasts() const override { return false; }
    std::shared_ptr<Image> icon() const override;

protected:
    explicit PurchasedPlaylist(const std::optional<std::string>& name) : Playlist(name) {}
};

} // namespace zq
