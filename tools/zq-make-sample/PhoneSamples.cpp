// Ready-made phones: the built-in sample as an iOS 5+ device keeps it, and a large phone for
// measurements.

#include "tools/zq-make-sample/DeviceImage.h"

#include <algorithm>
#include <map>

namespace zq::sample {

namespace {

constexpr std::uint32_t kCoverSide = 120;

/// ":iPod_Control:Music:F03:HBSG.wav" moved to `folder` (colon form, e.g. ":Purchases").
std::string relocated(const std::string& location, const std::string& folder)
{
    return folder + location.substr(location.rfind(':'));
}

Picture tintedCard(std::uint64_t albumID)
{
    return [albumID](std::uint32_t x, std::uint32_t y) {
        auto pixel = testPicture(x, y, kCoverSide, kCoverSide);
        pixel.blue = static_cast<std::uint8_t>(pixel.blue / 2 + 20 * albumID);
        return pixel;
    };
}

} // namespace

PhoneSpec makeSamplePhone(MediaLibraryGeneration generation)
{
    VolumeSpec volume = makeSampleDevice();
    PhoneSpec phone;
    phone.generation = generation;
    DatabaseSpec db = std::move(*volume.database);

    // Songs in two music folders, the compilation's song bought on the phone (Purchases), the
    // episodes in Podcasts: four base locations.
    std::map<std::string, std::uint64_t> albumIDs;
    std::uint64_t nextAlbum = 100;
    std::uint32_t purchased = 0;
    for (auto& t : db.tracks) {
        std::string folder = t.mediaType == 4 ? ":Podcasts" : t.trackID % 2 ? ":iTunes_Control:Music:F00" : ":iTunes_Control:Music:F01";
        if (t.compilation == 1) {
            folder = ":Purchases";
            purchased = t.trackID;
        }
        const std::string from = relativePathOfLocation(*t.location);
        t.location = relocated(*t.location, folder);
        phone.files[relativePathOfLocation(*t.location)] = volume.files.at(from);
        // Every album has an album row on a phone, podcast shows included.
        if (t.album && !t.albumID) {
            auto [it, added] = albumIDs.emplace(*t.album, nextAlbum);
            nextAlbum += added;
            t.albumID = static_cast<std::uint16_t>(it->second);
        }
        t.artworkLink = 0;
        t.checked = 1;
    }

    // What the iPod sample leaves empty and a phone keeps: grouping, EQ, BPM, start and stop
    // times, volume, a comment, skips.
    TrackSpec& first = db.tracks.front();
    first.grouping = "Sunrise";
    first.EQSetting = "Rock";
    first.comment = "Recorded live";
    first.BPM = 118;
    first.startTime = 120;
    first.endTime = 2400;
    first.volume = 12;
    db.tracks[1].skipCount = 4;
    db.tracks[1].lastSkippedTime = db.tracks[1].lastPlayedTime + 600;

    // Two songs that are only in the cloud: listed, with no file on the phone.
    const std::uint32_t cloudA = 90, cloudB = 91;
    for (std::uint32_t id : {cloudA, cloudB}) {
        TrackSpec t{.trackID = id, .rating = 60, .fileSize = 4200000, .trackLength = 215000, .trackNumber = id - 89,
                    .trackTotal = 2, .year = 2021, .bitrate = 256, .sampleRate = 44100, .discNumber = 1,
                    .discTotal = 1, .dateAdded = db.tracks.front().dateAdded + 86400,
                    .dbid = 0x7A3E000000000000ULL + 0x1111ULL * id, .checked = 1, .mediaType = 1, .albumID = 120,
                    .title = id == cloudA ? "Streamed Dawn" : "Streamed Dusk", .album = "Only In The Cloud",
                    .artist = "Nimbus", .genre = "Ambient", .albumArtist = "Nimbus"};
        db.tracks.push_back(std::move(t));
    }

    // The playlists of the sample, and what only a phone has: a folder holding two playlists (one
    // of them a folder itself), the Purchased list, a playlist that holds a song twice and a
    // cloud song.
    const std::uint32_t created = db.playlists.front().creationTimestamp;
    const std::uint64_t folderID = 0x4E2B9C0D11A07F10ULL, innerID = 0x4E2B9C0D11A07F11ULL;
    db.playlists.front().name = "Sample iPhone";
    for (auto& p : db.playlists)
        if (p.name == "Road Trip")
            p.parentID = folderID;
    db.playlists.push_back({.name = "Mixes", .creationTimestamp = created + 20000, .playlistID = folderID, .folder = true});
    db.playlists.push_back({.name = "Late Mixes", .creationTimestamp = created + 21000, .playlistID = innerID,
                            .parentID = folderID, .folder = true});
    db.playlists.push_back({.name = "Purchased", .creationTimestamp = created + 22000,
                            .playlistID = 0x4E2B9C0D11A07F12ULL, .items = {purchased}, .distinguishedKind = 19});
    db.playlists.push_back({.name = "On Repeat", .creationTimestamp = created + 23000,
                            .playlistID = 0x4E2B9C0D11A07F13ULL, .items = {53, 60, 53, cloudA},
                            .parentID = innerID});

    for (const auto& t : db.tracks)
        if (t.albumID && !phone.covers.contains(t.albumID) && t.mediaType != 4)
            phone.covers[t.albumID] = {kCoverSide, tintedCard(t.albumID)};
    phone.pngCovers = {2};
    // The real phone's layout keeps its covers in artwork files of its own, which the sample
    // does not write.
    if (generation == MediaLibraryGeneration::IOS8)
        phone.covers.clear(), phone.pngCovers.clear();
    phone.pendingPlaylists = 2;  // "Purchased" and "On Repeat" are only in the WAL
    phone.pendingTracks = 3;
    phone.database = std::move(db);
    return phone;
}

PhoneSpec makeLargePhone(std::size_t trackCount, MediaLibraryGeneration generation)
{
    PhoneSpec phone;
    phone.generation = generation;
    PlaylistSpec master{.name = "Large iPhone", .master = 1, .playlistID = 1};
    PlaylistSpec tenth{.name = "Every Tenth", .creationTimestamp = 5000000, .playlistID = 2};
    for (std::size_t i = 0; i < trackCount; ++i) {
        const auto id = static_cast<std::uint32_t>(1000 + i);
        const std::size_t album = i / 12;
        char name[96];
        std::snprintf(name, sizeof name, ":iTunes_Control:Music:F%02zu:T%06zu.m4a", i % 50, i);
        // Distinct bytes per file, a few kilobytes each.
        std::string bytes(2048 + (i * 37) % 2048, '\0');
        std::uint32_t seed = id;
        for (auto& c : bytes)
            c = static_cast<char>((seed = seed * 1103515245u + 12345u) >> 16);
        TrackSpec t{.trackID = id, .fileSize = static_cast<std::uint32_t>(bytes.size()), .trackLength = 180000,
                    .trackNumber = static_cast<std::uint32_t>(i % 12 + 1), .trackTotal = 12, .year = static_cast<std::uint32_t>(2000 + album % 25),
                    .bitrate = 256, .sampleRate = 44100, .playCount = static_cast<std::uint32_t>(i % 7),
                    .dbid = 0x5100000000000000ULL + id, .checked = 1, .mediaType = 1,
                    .albumID = static_cast<std::uint16_t>(album + 1),
                    .title = "Track " + std::to_string(i), .location = std::string(name),
                    .album = "Album " + std::to_string(album), .artist = "Artist " + std::to_string(album % 97),
                    .genre = "Genre " + std::to_string(album % 11), .albumArtist = "Artist " + std::to_string(album % 97)};
        phone.files[relativePathOfLocation(*t.location)] = Data(std::string_view(bytes));
        master.items.emplace_back(id);
        if (i % 10 == 0)
            tenth.items.emplace_back(id);
        phone.database.tracks.push_back(std::move(t));
    }
    phone.database.playlists = {std::move(master), std::move(tenth)};
    phone.pendingPlaylists = 1;
    phone.pendingTracks = 100;
    return phone;
}

} // namespace zq::sample
