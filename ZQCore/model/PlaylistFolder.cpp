#include "ZQCore/model/PlaylistFolder.h"

#include "ZQCore/foundation/Description.h"

#include <algorithm>

namespace zq {

std::shared_ptr<PlaylistFolder> PlaylistFolder::initWithName(const std::optional<std::string>& name)
{
    return std::shared_ptr<PlaylistFolder>(new PlaylistFolder(name));
}

void PlaylistFolder::addPlaylist(const std::shared_ptr<Playlist>& child)
{
    if (std::find(playlists_.begin(), playlists_.end(), child) != playlists_.end())
        return;
    ChangeScope change(*this, "playlists");
    playlists_.push_back(child);
}

void PlaylistFolder::removePlaylist(const std::shared_ptr<Playlist>& child)
{
    auto found = std::find(playlists_.begin(), playlists_.end(), child);
    if (found == playlists_.end())
        return;
    ChangeScope change(*this, "playlists");
    playlists_.erase(found);
}

Playlist::Tracks PlaylistFolder::tracks() const
{
    Tracks all;
    for (const auto& child : playlists_) {
        Tracks members = child->tracks();
        all.insert(all.end(), members.begin(), members.end());
    }
    return all;
}

std::size_t PlaylistFolder::trackCount() const
{
    std::size_t count = 0;
    for (const auto& child : playlists_)
        count += child->trackCount();
    return count;
}

std::string PlaylistFolder::description() const
{
    std::vector<std::string> children;
    children.reserve(playlists_.size());
    for (const auto& child : playlists_)
        children.push_back(child->description());
    return "Playlist folder: " + describe(name()) + ", ID: " + std::to_string(playlistID()) + ", Children:\n" +
           arrayDescription(children);
}

} // namespace zq
