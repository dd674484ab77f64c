// Filling playlists from records of the binary library database.

#include "ZQCore/model/Playlist.h"
#include "ZQCore/model/Podcasts.h"
#include "ZQCore/model/SmartPlaylist.h"
#include "ZQCore/reader/RecordLayouts.h"

namespace zq {

void Playlist::fillFromMHYP(std::span<const std::uint8_t> header)
{
    using namespace layout;
    isMaster_ = u8(header, MHYPHeader::master) == 1;
    isPodcasts_ = le16(header, MHYPHeader::podcastFlag) == 1;
    // Playlist timestamps count milliseconds from the 2001 reference date, unlike the 1904-based
    // seconds of track dates; only whole seconds are kept.
    creationDate_ = Date(static_cast<double>(le32(header, MHYPHeader::creationTimestamp) / 1000u));
    playlistID_ = le64(header, MHYPHeader::playlistID);
    sortOrder_ = static_cast<std::int32_t>(le32(header, MHYPHeader::sortOrder));
}

std::shared_ptr<Playlist> Playlist::initWithMHYP(std::span<const std::uint8_t> header, const std::optional<std::string>& name)
{
    auto playlist = initWithName(name);
    playlist->fillFromMHYP(header);
    return playlist;
}

std::shared_ptr<Podcasts> Podcasts::initWithMHYP(std::span<const std::uint8_t> header, const std::optional<std::string>& name)
{
    std::shared_ptr<Podcasts> podcasts(new Podcasts(name));
    podcasts->fillFromMHYP(header);
    return podcasts;
}

std::shared_ptr<SmartPlaylist> SmartPlaylist::initWithMHYP(std::span<const std::uint8_t> header,
                                                           const std::optional<std::string>& name,
                                                           const Value::Dictionary& smartPlaylistData)
{
    std::shared_ptr<SmartPlaylist> playlist(new SmartPlaylist(name));
    playlist->fillFromMHYP(header);
    playlist->fillFromOptions(smartPlaylistData);
    return playlist;
}

} // namespace zq
