#pragma once

#include <iosfwd>
#include <memory>
#include <string>

namespace zq {
class AlbumArt;
class Image;
class ZQCoreiPod;
}

namespace zqpod {

/// Writes one PNG per album into `folder` (created when missing): the cover the album's tracks
/// carry after the artwork walk, at its preferred (largest) size, or at the largest size that
/// can be read when that one cannot. Albums are told apart by album artist (or artist) and
/// album name, in the order of their first track; albums without artwork are listed but not
/// written. Prints one line per album written or without artwork to `out`, and one per album
/// whose artwork could not be read or encoded to `err`.
struct ArtExport {
    std::size_t written = 0;
    std::size_t failed = 0;  ///< albums that carry artwork none of whose pictures could be read
};
ArtExport exportAlbumArt(std::ostream& out, std::ostream& err, const zq::ZQCoreiPod& library, const std::string& folder);

/// The picture to write for an artwork: its preferred (largest) size, else the widest stored
/// size that can be read; nullptr when none can.
std::shared_ptr<const zq::Image> bestImage(const zq::AlbumArt& art);

} // namespace zqpod
