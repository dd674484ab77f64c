#include "ZQCore/model/PlaylistFolder.h"

#include "ZQCore/foundation/Description.h"

#include <algorithm>

namespace zq {

std::shared_ptr<PlaylistFolder> PlaylistFolder::initWithName(const std::optional<std::string>& name)
{
    return std::shared_ptr<PlaylistFolder>(new PlaylistFolder(name));
}

bool PlaylistFolder::holds(const Playlist& playlist) const
{
    for (const auto& child : playlists_) {
        if (child.get() == &playlist)
            return true;
        if (const auto* folder = dynamic_cast<const PlaylistFolder*>(child.get()); folder && folder->holds(playlist))
            return true;
    }
    return false;
}

void PlaylistFolder::addPlaylist(const std::shared_ptr<Playlist>& child)
{
    // A null child is no child, and a folder put inside itself (directly or through its own
    // children) would make every walk of its tracks endless: both are refused.
    if (!child || child.get() == this || std::find(playlists_.begin(), playlists_.end(), child) != playlists_.end())
        return;
    if (const auto* folder = dynamic_cast<const PlaylistFolder*>(child.get()); folder && folder->holds(*this))
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
