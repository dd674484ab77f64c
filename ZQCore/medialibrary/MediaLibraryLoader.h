#pragma once

// The loader of the one library database of iOS 5 and later (MediaLibrary.sqlitedb): from a
// device's files to tracks, playlists and artwork. ZQCoreiPod's operations of the same names
// forward here.

#include "ZQCore/files/DeviceFiles.h"
#include "ZQCore/model/Playlist.h"
#include "ZQCore/model/TrackLibrary.h"
#include "ZQCore/model/iPodTrack.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zq {

namespace MediaLibraryLoader {

/// What a load gives.
struct Contents {
    std::vector<std::shared_ptr<iPodTrack>> tracks;
    std::vector<std::shared_ptr<Playlist>> playlists;
    /// The podcast group when the library has episodes: it belongs after the playlists.
    std::shared_ptr<Playlist> podcastGroup;
    /// What of the library could not be read, one line each (already logged).
    std::vector<std::string> warnings;
    /// Why the artwork could not be read; none when it was.
    std::optional<std::string> artworkLoadError;
};

/// Loads iTunes_Control/iTunes/MediaLibrary.sqlitedb below `mediaRoot` of `files` (see
/// ZQCoreiPod::loadFromMediaLibrary), its tracks belonging to `parent`. No value when there is
/// no such database; throws "<application identifier>.SQLiteFailed" when there is one that
/// cannot be copied or read.
std::optional<Contents> loadFromMediaLibrary(const DeviceFiles& files, const std::string& mediaRoot,
                                             const std::shared_ptr<TrackLibrary>& parent);
/// The same load from a local database file; track and artwork paths are formed below
/// `mediaRoot`.
Contents loadFromLocalMediaLibraryDatabase(const std::string& database, const std::string& mediaRoot,
                                           const std::shared_ptr<TrackLibrary>& parent);

} // namespace MediaLibraryLoader

} // namespace zq
