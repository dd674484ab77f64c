#pragma once

#include "ZQCore/foundation/Date.h"
#include "ZQCore/foundation/Export.h"
#include "ZQCore/foundation/Observable.h"
#include "ZQCore/foundation/Value.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

struct sqlite3_stmt;

namespace zq {

class iPodTrack;
class Image;
class TrackLibrary;

/// A named, ordered list of tracks of one library (duplicates allowed), and the base of the
/// other kinds: Podcasts, PlaylistFolder, PurchasedPlaylist and SmartPlaylist.
///
/// Observable keys: "tracks" (addTrack, removeTrack) and, on the kinds that have them,
/// "podcasts" and "playlists".
class ZQ_EXPORT Playlist : public Observable {
public:
    using Tracks = std::vector<std::shared_ptr<iPodTrack>>;

    /// A playlist named "New Playlist".
    static std::shared_ptr<Playlist> init();
    static std::shared_ptr<Playlist> initWithName(const std::optional<std::string>& name);
    /// The master playlist of a library whose database keeps the device's own list as a row
    /// like any other (a phone's device container): named after the device, holding its tracks.
    static std::shared_ptr<Playlist> initMaster(const std::optional<std::string>& name, std::uint64_t playlistID,
                                                std::optional<Date> creationDate);
    /// A playlist from a record of the binary database: `header` is the record's 48-byte block.
    static std::shared_ptr<Playlist> initWithMHYP(std::span<const std::uint8_t> header, const std::optional<std::string>& name);

    /// The playlist of the container-table row `row` of the SQLite library, of the class the
    /// row calls for (PurchasedPlaylist, PlaylistFolder, SmartPlaylist or Playlist), or nullptr
    /// for a row that is no playlist. The device's hidden library container gives its name to
    /// `parent`. Lives with the SQLite loader.
    static std::shared_ptr<Playlist> initWithSQLiteRow(sqlite3_stmt* row, const std::shared_ptr<TrackLibrary>& parent);

    ~Playlist() override;

    virtual bool isMaster() const { return isMaster_; }
    virtual bool isPodcasts() const { return isPodcasts_; }
    std::uint64_t playlistID() const { return playlistID_; }
    std::uint64_t parentID() const { return parentID_; }
    std::int32_t sortOrder() const { return sortOrder_; }
    std::optional<Date> creationDate() const { return creationDate_; }
    const std::optional<std::string>& name() const { return name_; }
    void setName(const std::optional<std::string>& name) { name_ = name; }
    Value::Dictionary& additionalData() { return additionalData_; }

    /// The members in order. Podcasts and folders answer the concatenation of their children.
    virtual Tracks tracks() const { return tracks_; }
    /// tracks().size(), without copying the list (a master playlist holds every track).
    virtual std::size_t trackCount() const { return tracks_.size(); }

    /// Appends (a track may stand twice); a null track is ignored.
    void addTrack(const std::shared_ptr<iPodTrack>& track);
    /// Appends several in order (null ones ignored), with one change notice for them all.
    void addTracks(Tracks tracks);
    /// Removes every occurrence; the change is announced even when nothing was removed.
    void removeTrack(const std::shared_ptr<iPodTrack>& track);

    /// "Master playlist name: <name>, ID: <id>, <count> tracks." for the master playlist,
    /// "Playlist name: ..." for the others.
    virtual std::string description() const;
    /// What kind of list this is, in one word for programs: "playlist", "smart", "podcasts",
    /// "folder" or "purchased" (the JSON view and the Python module use it).
    virtual const char* kind() const { return "playlist"; }

    /// A new image on every call: "iPod" for the master playlist, "Playlist" otherwise.
    virtual std::shared_ptr<Image> icon() const;

protected:
    explicit Playlist(const std::optional<std::string>& name);
    /// Fills the fields that every kind reads from a binary-database record.
    void fillFromMHYP(std::span<const std::uint8_t> header);
    /// Fills the fields that every kind reads from a container row of the SQLite library.
    void fillFromSQLiteRow(sqlite3_stmt* row);
    /// The plain or master form of description(), for kinds that build on it.
    std::string playlistDescription() const;

    Tracks tracks_;
    bool isMaster_ = false;
    bool isPodcasts_ = false;
    std::optional<Date> creationDate_;
    std::uint64_t playlistID_ = 0;
    std::uint64_t parentID_ = 0;
    std::int32_t sortOrder_ = 0;
    std::optional<std::string> name_;
    Value::Dictionary additionalData_;
};

} // namespace zq
