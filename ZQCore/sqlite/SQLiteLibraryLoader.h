#pragma once

// The loader of the four SQLite databases of "iTunes Library.itlp": from a device's files to
// tracks and playlists. ZQCoreiPod::loadFromLocalSQLiteDatabase forwards here.

#include "ZQCore/files/DeviceFiles.h"
#include "ZQCore/model/Playlist.h"
#include "ZQCore/model/TrackLibrary.h"
#include "ZQCore/model/iPodTrack.h"

#include <memory>
#include <string>
#include <vector>

namespace zq {

namespace SQLiteLibraryLoader {

using Tracks = std::vector<std::shared_ptr<iPodTrack>>;
using Playlists = std::vector<std::shared_ptr<Playlist>>;

/// What a load gives, filled as it goes: what was loaded before a failure stays.
struct Contents {
    Tracks& tracks;
    Playlists& playlists;
    /// The podcast group when the library has episodes: it belongs after the playlists.
    std::shared_ptr<Playlist> podcastGroup;
};

/// Loads the databases `library`, `extras` (opened and never read), `locations` and `dynamics`
/// (local files, opened read-only) into `contents`, with tracks belonging to `parent` (see
/// ZQCoreiPod::loadFromLocalSQLiteDatabase). True whenever it returns.
bool loadFromLocalSQLiteDatabase(const std::string& library, const std::string& extras, const std::string& locations,
                                 const std::string& dynamics, const std::shared_ptr<TrackLibrary>& parent,
                                 Contents& contents);

/// Loads the four databases of the folder `folder` of `files`: in place where the files can
/// open them as they are (a volume, each checked to be a file of the device and not a link out
/// of it), else from copies in a new folder of the temporary directory, removed on every way
/// out. False, loading nothing, unless all four are there (and could be copied).
bool loadFromDevice(const DeviceFiles& files, const std::string& folder, const std::shared_ptr<TrackLibrary>& parent,
                    Contents& contents);

} // namespace SQLiteLibraryLoader

} // namespace zq
