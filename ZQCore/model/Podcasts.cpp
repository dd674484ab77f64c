#include "ZQCore/model/Podcasts.h"

#include "ZQCore/foundation/Resources.h"

#include <algorithm>

namespace zq {

std::shared_ptr<Podcasts> Podcasts::init() { return std::shared_ptr<Podcasts>(new Podcasts(std::string("New Playlist"))); }

void Podcasts::addPodcast(const std::shared_ptr<Playlist>& show)
{
    // A null show is no show; the group itself as one of its shows would make its tracks endless.
    if (!show || show.get() == this || std::find(podcasts_.begin(), podcasts_.end(), show) != podcasts_.end())
        return;
    ChangeScope change(*this, "podcasts");
    podcasts_.push_back(show);
}

void Podcasts::removePodcast(const std::shared_ptr<Playlist>& show)
{
    auto found = std::find(podcasts_.begin(), podcasts_.end(), show);
    if (found == podcasts_.end())
        return;
    ChangeScope change(*this, "podcasts");
    podcasts_.erase(found);
}

Playlist::Tracks Podcasts::tracks() const
{
    Tracks all;
    for (const auto& show : podcasts_) {
        Tracks episodes = show->tracks();
        all.insert(all.end(), episodes.begin(), episodes.end());
    }
    return all;
}

std::size_t Podcasts::trackCount() const
{
    std::size_t count = 0;
    for (const auto& show : podcasts_)
        count += show->trackCount();
    return count;
}

std::shared_ptr<Image> Podcasts::icon() const { return Resources::imageForResource("Podcasts", "png"); }

} // namespace zq
