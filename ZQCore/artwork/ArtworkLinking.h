#pragma once

// Which artwork each track ends with after the artwork walk, computed on the identifiers alone.
//
// The rule (for one image list): each track, in order, takes the first artwork in file order
// whose song identifier equals its dbid or whose image identifier equals its artwork link (a
// link above 32 bits never equals an image identifier); a matched track with a non-zero album
// identifier notes its artwork for its album, a later track replacing the note. Then every
// track of a noted album takes the album's artwork. Image lists are linked one after another,
// each on what the previous left.
//
// Done literally that is a scan of all artwork for every track. resolveArtworkLinks gives the
// same outcome for any number of lists with two hash look-ups per track (the reasoning is in
// ArtworkLinking.cpp), so linking 50,000 tracks to 50,000 covers takes milliseconds.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace zq {

/// What linking reads of a track.
struct TrackArtworkKeys {
    std::uint64_t dbid = 0;
    std::uint64_t artworkLink = 0;
    std::uint64_t albumID = 0;
};

/// What linking reads of an artwork.
struct ArtworkKeys {
    std::uint32_t artworkID = 0; ///< image identifier
    std::uint64_t trackID = 0;   ///< song identifier
};

/// Where an artwork stands: its image list and its index in that list.
struct ArtworkPosition {
    std::uint32_t list = 0;
    std::uint32_t index = 0;
    friend bool operator==(const ArtworkPosition&, const ArtworkPosition&) = default;
};

/// For each track, the artwork it ends with after linking `lists` in order; no value for a
/// track that no list touches (it keeps what it had).
std::vector<std::optional<ArtworkPosition>> resolveArtworkLinks(std::span<const TrackArtworkKeys> tracks,
                                                                std::span<const std::span<const ArtworkKeys>> lists);

} // namespace zq
