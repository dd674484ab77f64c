#include "ZQCore/artwork/AlbumArt.h"

#include "ZQCore/foundation/Resources.h"

namespace zq {

std::shared_ptr<AlbumArt> AlbumArt::noAlbumArtInstance()
{
    static const std::shared_ptr<AlbumArt> instance = initWithImage(Resources::imageForResource("NoImage", "png"));
    return instance;
}

std::shared_ptr<AlbumArt> AlbumArt::initWithImage(std::shared_ptr<const Image> image)
{
    auto art = std::make_shared<AlbumArt>(Key());
    art->image_ = std::move(image);
    return art;
}

std::shared_ptr<AlbumArt> AlbumArt::initWithReps(Reps reps, std::uint32_t artworkID, std::uint64_t trackID)
{
    auto art = std::make_shared<AlbumArt>(Key());
    art->artReps_ = std::move(reps);
    art->artworkID_ = artworkID;
    art->trackID_ = trackID;
    std::int32_t widest = 0;
    for (const auto& rep : art->artReps_) {
        if (rep && rep->width() > widest) {
            widest = rep->width();
            art->preferredRep_ = rep;
        }
    }
    return art;
}

std::shared_ptr<const Image> AlbumArt::image() const
{
    return preferredRep_ ? preferredRep_->image() : image_;
}

} // namespace zq
