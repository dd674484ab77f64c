#pragma once

// The loader of the binary library database (iTunesDB, and the compressed iTunesCDB): from a
// device's files to plain contents, tracks and playlists. It knows nothing of the library
// object; ZQCoreiPod's operations of the same names forward here.

#include "ZQCore/files/DeviceFiles.h"
#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Value.h"
#include "ZQCore/model/Playlist.h"
#include "ZQCore/model/TrackLibrary.h"
#include "ZQCore/model/iPodTrack.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace zq {

class XRDataReader;
struct TrackIDIndex;

class iTunesDBLoader {
public:
    using Tracks = std::vector<std::shared_ptr<iPodTrack>>;
    using Playlists = std::vector<std::shared_ptr<Playlist>>;
    using TrackIndexCache = std::unordered_map<std::uint64_t, std::int32_t>;

    /// Which file a library was read from.
    enum class Source { None, iTunesDB, iTunesCDB };

    /// A walk whose tracks belong to `parent` and whose locations are formed below `basePath`,
    /// starting from `tracks` and `playlists` (a walk replaces only what its file holds).
    iTunesDBLoader(std::shared_ptr<TrackLibrary> parent, std::string basePath, Tracks tracks = {},
                   Playlists playlists = {});

    /// What was read so far (also after a walk that threw), to be taken.
    Tracks& tracks() { return tracks_; }
    Playlists& playlists() { return playlists_; }
    /// What of the library could not be read, one line each (already logged).
    std::vector<std::string>& warnings() { return warnings_; }

    /// Reads the binary library of the folder `folder` of `files` (`shownFolder` names it in
    /// messages): iTunesCDB when it is there and not empty (a device that keeps it also keeps an
    /// empty or stale iTunesDB), else iTunesDB. A damaged iTunesCDB is logged and iTunesDB read
    /// instead when that holds a library; with nothing else to read, its exception (reason
    /// naming the file and the damage) leaves here. None, changing nothing, when neither file
    /// is there.
    Source loadBinaryLibraryInFolder(const DeviceFiles& files, const std::string& folder, const std::string& shownFolder);
    /// Reads the library database at `path` when it is there: false, changing nothing, when
    /// there is no file; throws "ZQCoreiPodLibraryUnreadableException" naming `shownAs` when the
    /// file is there but cannot be read, is empty or is no library database, and passes on the
    /// walk's exception with `shownAs` in its reason.
    bool loadBinaryDatabase(const DeviceFiles& files, const std::string& path, const std::string& shownAs);

    /// Walks a whole library database (see ZQCoreiPod::parseiTunesDBWithData).
    void parseiTunesDBWithData(const Data& data);
    void parseiTunesDBWithReader(XRDataReader& reader);
    Tracks parseTrackList(XRDataReader& reader);
    Playlists parsePlaylistListWithReader(XRDataReader& reader, const Tracks& tracks, const TrackIndexCache& cache);
    static Value::Dictionary parseSmartPlaylistRulesInData(const Data& data);
    static std::string keyForStringMHODType(std::int32_t type);

private:
    /// parseTrackList, with the walked tracks' index by ID.
    Tracks parseTrackList(XRDataReader& reader, TrackIDIndex& index);
    /// parsePlaylistListWithReader with the cache asked through `cachedIndex` (the index of the
    /// track with that ID, or anything when it has none: the answer is checked, against `idAt`
    /// when it gives the ID of every track by position, otherwise against the track).
    Playlists parsePlaylistList(XRDataReader& reader, const Tracks& tracks,
                                const std::function<std::uint32_t(std::uint64_t)>& cachedIndex,
                                std::span<const std::uint32_t> idAt = {}, bool grouped = true);
    /// The playlist list at the reader's position, with members resolved through the index of
    /// the walked track list (made from `tracks` when the walk met none). `grouped` is false
    /// for the plain list, whose podcast playlist names episodes without show headers.
    Playlists parseWalkedPlaylistList(XRDataReader& reader, std::optional<TrackIDIndex>& walked, bool grouped);
    void warnAboutLoad(const std::string& warning);

    Tracks tracks_;
    Playlists playlists_;
    std::vector<std::string> warnings_;
    std::shared_ptr<TrackLibrary> parent_;
    std::string basePath_;
};

} // namespace zq
