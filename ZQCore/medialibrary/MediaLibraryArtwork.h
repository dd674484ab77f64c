#pragma once

// Album artwork named by a MediaLibrary.sqlitedb: today's releases tie an item or an album to an
// artwork token (best_artwork_token, or artwork_token) and the token to an image file
// (artwork.relative_path) below iTunes_Control/iTunes/Artwork; older ones name the file per item
// in artwork_info. The files are JPEG or PNG and are read and decoded only when a picture is
// asked for. (Releases that keep their covers in ArtworkDB and thumbnail files are read by the
// artwork database walk instead.)

#include "ZQCore/model/Playlist.h"
#include "ZQCore/model/TrackLibrary.h"
#include "ZQCore/model/iPodTrack.h"

#include <memory>
#include <optional>
#include <string>

struct sqlite3;

namespace zq {

class MediaLibrarySchema;

/// Attaches one AlbumArt per image file to the tracks it belongs to: a track's own artwork
/// wins over its album's. Tracks without any keep what they had. Rows that name no usable file
/// are skipped; a table that cannot be read throws "<application identifier>.SQLiteFailed".
void attachMediaLibraryArtwork(sqlite3* db, const MediaLibrarySchema& schema, const std::vector<std::shared_ptr<iPodTrack>>& tracks,
                               const std::string& mediaRoot, const std::shared_ptr<TrackLibrary>& parent);

/// `relative` joined below `mediaRoot` when it stays inside it (no "..", nothing absolute; the
/// phone's own "/var/mobile/Media/" in front is dropped); no value otherwise or when empty.
std::optional<std::string> mediaLibraryFilePath(const std::string& mediaRoot, const std::string& relative);

} // namespace zq
