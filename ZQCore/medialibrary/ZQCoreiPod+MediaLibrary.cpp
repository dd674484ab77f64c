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
#include "ZQCore/sqlite/SQLiteDatabase.h"

#include <sqlite3.h>

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
    librarySource_ = LibrarySource::MediaLibrary;
    return true;
}

void ZQCoreiPod::loadFromLocalMediaLibraryDatabase(const std::string& database, const std::string& mediaRoot)
{
    // SQLite's own words ("SQL logic error" for a damaged schema page) do not say which file
    // failed; the reason names it, so that a person knows the phone's library is what is damaged.
    try {
        loadMediaLibrary(database, mediaRoot);
    } catch (const Exception& error) {
        throw error.withReason("The media library database (MediaLibrary.sqlitedb) could not be read; it "
                                      "may be damaged. " + error.reason());
    }
}

namespace {

/// Whether every row of `table` can be read (a damaged page fails the walk).
bool readsThrough(sqlite3* db, const std::string& table)
{
    try {
        SQLiteStatement rows(db, ("SELECT * FROM " + sqlIdentifier(table)).c_str());
        int status;
        while ((status = sqlite3_step(rows.handle())) == SQLITE_ROW) {
        }
        return status == SQLITE_DONE;
    } catch (const Exception&) {
        return false;
    }
}

} // namespace

void ZQCoreiPod::loadMediaLibrary(const std::string& database, const std::string& mediaRoot)
{
    MediaLibraryConnection connection(database);
    MediaLibrarySchema schema(connection.handle());
    const std::shared_ptr<ZQCoreiPod> self = weak_from_this().lock();
    auto warn = [this](const std::string& warning) { warnAboutLoad(warning); };

    // ---- tracks, in row order. A table joined to the items that cannot be read costs the
    // fields it gives (statistics, names, ...), not the tracks: it is set aside and the items
    // are read again without it. When none of them is at fault the items themselves cannot be
    // read, and there is no library to show.
    Tracks tracks;
    std::unordered_map<std::int64_t, std::shared_ptr<iPodTrack>> trackByPid;
    bool locatesFiles = false;
    for (;;) {
        const MediaLibraryItemReader reader(connection.handle(), schema);
        locatesFiles = reader.locatesFiles();
        tracks.clear();
        trackByPid.clear();
        try {
            reader.forEachItem([&](const MediaLibraryItem& item) {
                std::optional<std::string> filePath;
                bool cloudOnly = false;
                if (item.location && !item.location->empty() && item.basePath) {
                    // The base location of id 0 is "": its locations count from the media folder.
                    auto base = relativeInside(*item.basePath);
                    auto name = relativeInside(*item.location);
                    if (base && name && !name->empty())
                        filePath = (fs::path(mediaRoot) / *base / *name).string();
                } else {
                    // No base location or no file name: the item is in the library but its file
                    // is not on the device (bought or matched music left in the cloud). Where
                    // the database holds no locations at all, that is not known.
                    cloudOnly = locatesFiles;
                }
                auto track = iPodTrack::initWithMediaLibraryItem(item, filePath, self);
                if (cloudOnly)
                    track->additionalData()[iPodTrack::kCloudOnlyKey] = true;
                trackByPid.emplace(item.pid, track);
                tracks.push_back(std::move(track));
            });
            break;
        } catch (const Exception&) {
            bool setAside = false;
            for (const auto& table : reader.joinedTables())
                if (!readsThrough(connection.handle(), table)) {
                    schema.markUnreadable(table, sqlite3_errmsg(connection.handle()));
                    setAside = true;
                }
            if (!setAside)
                throw;
        }
    }

    if (!locatesFiles && !tracks.empty())
        warn("MediaLibrary.sqlitedb holds no file locations (the table that keeps them is missing or cannot be "
             "read), so where the tracks' files are is unknown.");
    for (const auto& [table, reason] : schema.unreadableTables())
        if (MediaLibraryItemReader::feedsItems(table))
            warn("The table " + table + " of MediaLibrary.sqlitedb cannot be read (" + reason +
                 "); what it holds is left out.");

    // ---- playlists, their members in order, and folders. A container table that cannot be
    // read costs the playlists.
    Playlists playlists;
    try {
        playlists = MediaLibraryContainers(connection.handle(), schema, warn).load(trackByPid, self);
    } catch (const Exception& error) {
        warn("The playlists of MediaLibrary.sqlitedb could not be read: " + error.reason());
    }

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

    try {
        attachMediaLibraryArtwork(connection.handle(), schema, tracks_, mediaRoot, self);
    } catch (const Exception& error) {
        artworkLoadError_ = error.reason();
        warn("The artwork of MediaLibrary.sqlitedb could not be read: " + error.reason());
    }
}

} // namespace zq
