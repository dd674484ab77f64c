#pragma once

#include "ZQCore/artwork/AlbumArtRep.h"
#include "ZQCore/foundation/Export.h"
#include "ZQCore/foundation/Image.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace zq {

/// The cover of one image item of the artwork database: every stored size of it, and the one
/// whose picture image() gives (the widest).
///
/// Tracks without a cover answer the shared noAlbumArtInstance(), whose image is the
/// framework's "NoImage" picture, so a client can always show something.
class ZQ_EXPORT AlbumArt {
    struct Key {
        explicit Key() = default;
    };

public:
    using Reps = std::vector<std::shared_ptr<AlbumArtRep>>;

    explicit AlbumArt(Key) {}

    /// The one shared stand-in for tracks without artwork: its image is the "NoImage" resource;
    /// it has no representations and both identifiers are 0. Made on first use, kept for the
    /// life of the process.
    static std::shared_ptr<AlbumArt> noAlbumArtInstance();

    /// Artwork that is just `image` (no representations, no identifiers).
    static std::shared_ptr<AlbumArt> initWithImage(std::shared_ptr<const Image> image);

    /// The artwork of one image item: its stored sizes in file order, its image identifier and
    /// its song identifier. The preferred representation is the widest one by visible width;
    /// the first of equal widths wins, and one of width 0 is never preferred.
    static std::shared_ptr<AlbumArt> initWithReps(Reps reps, std::uint32_t artworkID, std::uint64_t trackID);

    /// The preferred representation's picture (nullptr while it cannot be read); without a
    /// preferred representation, the fixed image (the stand-in's "NoImage", otherwise none).
    std::shared_ptr<const Image> image() const;

    const Reps& artReps() const { return artReps_; }
    /// nullptr when no representation has a width.
    const std::shared_ptr<AlbumArtRep>& preferredRep() const { return preferredRep_; }
    /// The image identifier; tracks refer to it through their artwork link.
    std::uint32_t artworkID() const { return artworkID_; }
    /// The song identifier; compared with a track's dbid.
    std::uint64_t trackID() const { return trackID_; }

private:
    std::shared_ptr<const Image> image_;
    Reps artReps_;
    std::uint32_t artworkID_ = 0;
    std::uint64_t trackID_ = 0;
    std::shared_ptr<AlbumArtRep> preferredRep_;
};

} // namespace zq
