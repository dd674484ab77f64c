#include "ZQCore/model/PurchasedPlaylist.h"

#include "ZQCore/foundation/Resources.h"

namespace zq {

std::shared_ptr<PurchasedPlaylist> PurchasedPlaylist::initWithName(const std::optional<std::string>& name)
{
    return std::shared_ptr<PurchasedPlaylist>(new PurchasedPlaylist(name));
}

std::shared_ptr<Image> PurchasedPlaylist::icon() const { return Resources::imageForResource("PurchasedPlaylist", "png"); }

} // namespace zq
