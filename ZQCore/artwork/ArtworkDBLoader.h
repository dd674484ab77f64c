#pragma once

// The loader of the artwork database (ArtworkDB): from a device's files to artwork attached to
// tracks. ZQCoreiPod's operations of the same names forward here.

#include "ZQCore/files/DeviceFiles.h"
#include "ZQCore/foundation/Data.h"
#include "ZQCore/model/TrackLibrary.h"
#include "ZQCore/model/iPodTrack.h"

#include <memory>
#include <string>
#include <vector>

namespace zq {

class AlbumArt;
class XRDataReader;

namespace ArtworkDBLoader {

using Tracks = std::vector<std::shared_ptr<iPodTrack>>;

/// Reads the artwork database at `path` of `files` whole, makes one AlbumArt per image item
/// (their pixels read later through `library`'s files) and attaches them to `tracks`. A missing
/// or empty file changes nothing. A truncated or corrupt file throws "XRDataReaderInvalidRead":
/// the image list being built is dropped, lists finished before it keep their links.
void parseArtworkDBAtPath(const DeviceFiles& files, const std::string& path, const Tracks& tracks,
                          const std::shared_ptr<TrackLibrary>& library);
/// The same walk over the bytes of an artwork database; the thumbnail files are looked for in
/// `folderPath`. Safe on any bytes.
void parseArtworkDBWithData(const Data& data, const Tracks& tracks, const std::string& folderPath,
                            const std::shared_ptr<TrackLibrary>& library);
/// Builds the artwork of the image list at the reader's position and links it to `tracks`.
void parseImageListWithReader(XRDataReader& reader, const Tracks& tracks, const std::string& folderPath,
                              const std::shared_ptr<TrackLibrary>& library);
/// Links artwork to tracks (see ZQCoreiPod::linkArtwork).
void linkArtwork(const Tracks& tracks, const std::vector<std::shared_ptr<AlbumArt>>& artworks);

} // namespace ArtworkDBLoader

} // namespace zq
