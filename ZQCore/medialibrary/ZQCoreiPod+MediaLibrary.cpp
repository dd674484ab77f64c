// Loading a library from the one SQLite database of iOS 5 and later devices,
// iTunes_Control/iTunes/MediaLibrary.sqlitedb.

#include "ZQCore/device/ZQCoreiPod.h"

#include "ZQCore/medialibrary/MediaLibraryArtwork.h"
#include "ZQCore/medialibrary/MediaLibraryContainers.h"
#include "ZQCore/medialibrary/MediaLibraryCopy.h"
#include "ZQCore/medialibrary/MediaLibraryItemReader.h"
#include "ZQCore/medialibrary/MediaLibrarySchema.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/model/Podcasts.h"

#include <filesystem>
#include <unordered_map>

namespace zq {

namespace fs = std::filesystem;

namespace {

constexpr const char* kDatabase = "iTunes_Control/iTunes/MediaLibrary.sqlitedb";

/// A relative path from the database that stays below the folder it is joined to: no ".."
/// component and nothing absolute. Base locations are sometimes stored with the phone's own
/// media folder in front; that prefix is dropped.
std::optional<std::string> relativeInside(std::string path)
{
    static constexpr std::string_view kPhoneMedia = "/var/mobile/Media/";
    if (path.starts_with(kPhoneMedia))
        path.erase(0, kPhoneMedia.size());
    while (path.starts_with("/"))
        path.erase(0, 1);
    for (const auto& part : fs::path(path))
        if (part == "..")
            return std::nullopt;
    return path;
}

} // namespace

std::optional<std::string> mediaLibraryFilePath(const std::string& mediaRoot, const std::string& relative)
{
    auto inside = relativeInside(relative);
    if (!inside || inside->empty())
        return std::nullopt;
    return (fs::path(mediaRoot) / *inside).string();
}

bool ZQCoreiPod::loadFromMediaLibrary(const std::string& mediaRoot)
{
    const std::string database = (fs::path(mediaRoot) / kDatabase).string();
    if (!sizeOfFileAtPath(database))
        return false;
    MediaLibraryCopy copy(
        database, [this](const std::string& path) { return contentsOfFileAtPath(path); },
        [this](const std::string& path) { return sizeOfFileAtPath(path).has_value(); });
    loadFromLocalMediaLibraryDatabase(copy.localPath(), mediaRoot);
    return true;
}

void ZQCoreiPod::loadFromLocalMediaLibraryDatabase(const std::string& database, const std::string& mediaRoot)
{
    // SQLite's own words ("SQL logic error" for a damaged schema page) do not say which file
    // failed; the reason names it, so that a person knows the phone's library is what is damaged.
    try {
        loadMediaLibrary(database, mediaRoot);
    } catch (const Exception& error) {
        throw Exception(error.name(), "The media library database (MediaLibrary.sqlitedb) could not be read; it "
                                      "may be damaged. " + error.reason());
    }
}

void ZQCoreiPod::loadMediaLibrary(const std::string& database, const std::string& mediaRoot)
{
    MediaLibraryConnection connection(database);
    const MediaLibrarySchema schema(connection.handle());
    const std::shared_ptr<ZQCoreiPod> self = weak_from_this().lock();

    // ---- tracks, in row order
    Tracks tracks;
    std::unordered_map<std::int64_t, std::shared_ptr<iPodTrack>> trackByPid;
    MediaLibraryItemReader(connection.handle(), schema).forEachItem([&](const MediaLibraryItem& item) {
        std::optional<std::string> filePath;
        bool cloudOnly = false;
        if (item.location && !item.location->empty() && item.basePath && !item.basePath->empty()) {
            auto base = relativeInside(*item.basePath);
            auto name = relativeInside(*item.location);
            if (base && name && !name->empty())
                filePath = (fs::path(mediaRoot) / *base / *name).string();
        } else {
            // No base location or no file name: the item is in the library but its file is not
            // on the device (bought or matched music left in the cloud).
            cloudOnly = true;
        }
        auto track = iPodTrack::initWithMediaLibraryItem(item, filePath, self);
        if (cloudOnly)
            track->additionalData()[iPodTrack::kCloudOnlyKey] = true;
        trackByPid.emplace(item.pid, track);
        tracks.push_back(std::move(track));
    });

    // ---- playlists, their members in order, and folders
    Playlists playlists = MediaLibraryContainers(connection.handle(), schema).load(trackByPid, self);

    // ---- the podcast group: one show per album, in the order the episodes come
    auto group = Podcasts::init();
    group->setName(std::string("Podcasts"));
    for (const auto& track : tracks) {
        if ((track->mediaType() & 4) == 0 || !track->album())
            continue;
        std::shared_ptr<Playlist> show;
        for (const auto& candidate : group->podcasts())
            if (candidate->name() == track->album())
                show = candidate;
        if (!show) {
            show = Playlist::initWithName(track->album());
            group->addPodcast(show);
        }
        show->addTrack(track);
    }

    {
        ChangeScope change(*this, "tracks");
        tracks_ = std::move(tracks);
    }
    {
        ChangeScope change(*this, "playlists");
        playlists_ = std::move(playlists);
    }
    if (!group->podcasts().empty())
        addPlaylist(group);

    attachMediaLibraryArtwork(connection.handle(), schema, tracks_, mediaRoot, self);
}

} // namespace zq
