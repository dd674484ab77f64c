#include "ZQCore/model/Playlist.h"

#include "ZQCore/foundation/Description.h"
#include "ZQCore/foundation/Resources.h"

#include <algorithm>

namespace zq {

Playlist::Playlist(const std::optional<std::string>& name) : name_(name) {}

Playlist::~Playlist() = default;

std::shared_ptr<Playlist> Playlist::init() { return initWithName(std::string("New Playlist")); }

std::shared_ptr<Playlist> Playlist::initWithName(const std::optional<std::string>& name)
{
    return std::shared_ptr<Playlist>(new Playlist(name));
}

std::shared_ptr<Playlist> Playlist::initMaster(const std::optional<std::string>& name, std::uint64_t playlistID,
                                               std::optional<Date> creationDate)
{
    std::shared_ptr<Playlist> master(new Playlist(name));
    master->isMaster_ = true;
    master->playlistID_ = playlistID;
    master->creationDate_ = creationDate;
    return master;
}

void Playlist::addTrack(const std::shared_ptr<iPodTrack>& track)
{
    if (!track)
        return;
    ChangeScope change(*this, "tracks");
    tracks_.push_back(track);
}

void Playlist::addTracks(Tracks tracks)
{
    ChangeScope change(*this, "tracks");
    std::erase(tracks, nullptr);
    if (tracks_.empty())
        tracks_ = std::move(tracks);
    else
        tracks_.insert(tracks_.end(), std::make_move_iterator(tracks.begin()), std::make_move_iterator(tracks.end()));
}

void Playlist::removeTrack(const std::shared_ptr<iPodTrack>& track)
{
    ChangeScope change(*this, "tracks");
    std::erase(tracks_, track);
}

std::string Playlist::playlistDescription() const
{
    return std::string(isMaster() ? "Master playlist name: " : "Playlist name: ") + describe(name()) +
           ", ID: " + std::to_string(playlistID()) + ", " + std::to_string(static_cast<int>(trackCount())) +
           " tracks.";
}

std::string Playlist::description() const { return playlistDescription(); }

std::shared_ptr<Image> Playlist::icon() const
{
    return isMaster() ? Resources::imageForResource("iPod", "icns") : Resources::imageForResource("Playlist", "png");
}

} // namespace zq
