#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/reader/iTunesDBLoader.h"
#include "ZQCore/artwork/ArtworkDBLoader.h"
#include "ZQCore/sqlite/SQLiteLibraryLoader.h"
#include "ZQCore/medialibrary/MediaLibraryLoader.h"
#include "ZQCore/reader/XRDataReader.h"

#include "ZQCore/device/ZQCore.h"
#include "ZQCore/device/SysInfoFiles.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/files/VolumeFiles.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/File.h"
#include "ZQCore/foundation/Log.h"
#include "ZQCore/foundation/Resources.h"
#include "ZQCore/model/Podcasts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace zq {

namespace fs = std::filesystem;

std::shared_ptr<ZQCoreiPod> ZQCoreiPod::initWithiPodReference(const std::shared_ptr<ZQCoreiPodRef>& reference)
{
    if (auto existing = ZQCore::existingLibraryForReference(reference))
        return existing;
    // The reference knows which kind of library object reads its device (see loadLibrary).
    return reference ? reference->loadLibrary(reference) : loadVolumeLibrary(reference);
}

std::shared_ptr<ZQCoreiPod> ZQCoreiPod::loadVolumeLibrary(const std::shared_ptr<ZQCoreiPodRef>& reference)
{
    std::shared_ptr<ZQCoreiPod> library(new ZQCoreiPod());
    library->loadLibrary(reference);
    return library;
}

ZQCoreiPod::~ZQCoreiPod() = default;

void ZQCoreiPod::loadLibrary(const std::shared_ptr<ZQCoreiPodRef>& reference)
{
    const std::optional<std::string> path = reference ? reference->path() : std::nullopt;
    if (!path || !fileExists(*path))
        throw Exception(ErrorKind::NotFound, "ZQCoreiPodNotFoundException", "Exception: Could not init ZQCoreiPod - path doesn't exist.");
    iPodBasePath_ = *path;
    setFiles(std::make_shared<VolumeFiles>(iPodBasePath_));
    const fs::path base(iPodBasePath_);

    // A phone's file system (an ifuse mount, or a copy of one) keeps its whole library in
    // MediaLibrary.sqlitedb. Nothing is added to such a folder: the device-information steps
    // below are for disk-mode iPods.
    if (loadFromMediaLibrary(iPodBasePath_)) {
        phoneFolder_ = true;
        const fs::path phoneArtworkDB = base / "iTunes_Control" / "Artwork" / "ArtworkDB";
        if (fileExists(phoneArtworkDB)) {
            try {
                parseArtworkDBAtPath(phoneArtworkDB, tracks_);
            } catch (const Exception& error) {
                log("Could not load device artwork database with the error: " + error.reason() + " - skipping.");
            }
        }
        setIsConnected(true);
        ZQCore::libraryWasLoaded(shared_from_this());
        return;
    }

    // A disk-mode iPod keeps its library under iPod_Control; the file system of an older phone
    // (before MediaLibrary.sqlitedb) under iTunes_Control, in the same files.
    const bool phoneLayout = !fileExists(base / "iPod_Control") && fileExists(base / "iTunes_Control");
    phoneFolder_ = phoneLayout;
    const std::string control = phoneLayout ? "iTunes_Control" : "iPod_Control";

    // Newer devices keep their library in the SQLite databases of "iTunes Library.itlp"; when
    // all four are there, they are loaded first and the binary database is the fallback.
    bool needsBinaryDatabase = true;
    try {
        if (loadSQLiteLibraryInFolder((base / control / "iTunes" / "iTunes Library.itlp").string())) {
            needsBinaryDatabase = false;
            librarySource_ = LibrarySource::SQLiteDatabases;
        }
    } catch (const Exception& error) {
        log("Could not load the SQLite library databases with the error: " + error.reason() +
            " - reading iTunesDB instead.");
    }

    if (needsBinaryDatabase)
        loadBinaryLibraryInFolder((base / control / "iTunes").string(), control + "/iTunes");

    // Album artwork. A fault in its database costs the artwork, never the library: it is logged
    // and loading goes on with the tracks as they are.
    const fs::path artworkDB = base / "iPod_Control" / "Artwork" / "ArtworkDB";
    if (fileExists(artworkDB)) {
        try {
            parseArtworkDBAtPath(artworkDB, tracks_);
        } catch (const Exception& error) {
            artworkLoadError_ = error.reason();
            log("Could not load device artwork database with the error: " + error.reason() + " - skipping.");
        }
    }

    setIsConnected(true);

    // The Device folder is one of the two things the framework may create on a device, and only
    // on a disk-mode iPod's volume.
    const fs::path device = base / "iPod_Control" / "Device";
    if (!phoneLayout && fileExists(base / "iPod_Control") && !fileExists(device)) {
        std::error_code ignored;
        fs::create_directory(device, ignored);
    }
    // A device without SysInfoExtended is asked for it over SCSI; the answer is kept on the
    // volume (the one file the framework adds there) and read back below like one the device
    // came with.
    if (!fileExists(device / "SysInfoExtended"))
        obtainSysInfoExtendedFromDevice(device / "SysInfoExtended");
    readIdentityProperties();
    detectModelType();

    ZQCore::libraryWasLoaded(shared_from_this());
}

void ZQCoreiPod::readIdentityProperties()
{
    const fs::path device = fs::path(iPodBasePath_) / "iPod_Control" / "Device";
    const fs::path extended = device / "SysInfoExtended";
    // Both through the library's own file access, which never leaves the volume.
    const std::optional<Data> sysInfo = contentsOfFileAtPath(device / "SysInfo");
    // An empty SysInfoExtended counts as absent; one of which nothing can be read leaves the
    // properties empty without falling back to SysInfo.
    if (const auto size = sizeOfFileAtPath(extended); size && static_cast<std::int32_t>(*size) > 0) {
        if (auto contents = contentsOfFileAtPath(extended))
            if (auto list = readSysInfoExtended(*contents))
                properties_ = std::move(*list);
    } else if (sysInfo) {
        if (auto serial = serialNumberFromSysInfo(std::string(sysInfo->stringView())))
            properties_ = Value::Dictionary{{"SerialNumber", *serial}};
    }
    // The model draws on both files: SysInfo keeps the model number even where SysInfoExtended
    // gives the identity.
    model_ = DeviceModel::fromDeviceInformation(properties_, sysInfo ? sysInfo->stringView() : "");
}

void ZQCoreiPod::detectModelType()
{
    const Value* serial = properties_.find("SerialNumber");
    autodetectedType_ =
        modelTypeForSerialNumber(serial && serial->string() ? std::optional<std::string>(*serial->string()) : std::nullopt);
}

std::int32_t modelTypeForSerialNumber(const std::optional<std::string>& serial)
{
    if (!serial)
        return 0;
    std::string_view text = *serial;
    auto space = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; };
    while (!text.empty() && space(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && space(text.back()))
        text.remove_suffix(1);
    if (text.size() < 3)
        throw Exception(ErrorKind::Damaged, "RangeException", "The serial number \"" + std::string(text) +
                                              "\" is shorter than the three characters that name a model.");
    const std::string suffix(text.substr(text.size() - 3));

    static const std::optional<Value> types = [] {
        auto resource = Resources::dataForResource("iPodTypes", "plist");
        return resource ? Value::fromPropertyList(*resource) : std::nullopt;
    }();
    if (!types)
        return 0;
    const Value* type = types->find(suffix);
    return type ? static_cast<std::int32_t>(type->integerValue()) : 0;
}

const char* ZQCoreiPod::librarySourceName(LibrarySource source)
{
    switch (source) {
    case LibrarySource::iTunesDB: return "iTunesDB";
    case LibrarySource::iTunesCDB: return "iTunesCDB";
    case LibrarySource::SQLiteDatabases: return "iTunes Library.itlp";
    case LibrarySource::MediaLibrary: return "MediaLibrary.sqlitedb";
    case LibrarySource::None: break;
    }
    return "";
}

void ZQCoreiPod::warnAboutLoad(const std::string& warning)
{
    log(warning);
    loadWarnings_.push_back(warning);
}

std::optional<std::string> ZQCoreiPod::name() const
{
    if (auto master = masterPlaylist())
        return master->name();
    if (name_ && !name_->empty())
        return name_;
    return std::string("iPod");
}

void ZQCoreiPod::setName(const std::optional<std::string>& name)
{
    if (auto master = masterPlaylist())
        master->setName(name);
    else
        name_ = name;
}

std::shared_ptr<Playlist> ZQCoreiPod::masterPlaylist() const
{
    for (const auto& playlist : playlists_)
        if (playlist->isMaster())
            return playlist;
    return nullptr;
}

std::shared_ptr<Podcasts> ZQCoreiPod::podcasts() const
{
    for (const auto& playlist : playlists_)
        if (playlist->isPodcasts())
            if (auto podcasts = std::dynamic_pointer_cast<Podcasts>(playlist))
                return podcasts;
    return nullptr;
}

void ZQCoreiPod::addPlaylist(const std::shared_ptr<Playlist>& playlist)
{
    if (!playlist)
        return;  // a null playlist is no playlist
    ChangeScope change(*this, "playlists");
    playlists_.push_back(playlist);
}

void ZQCoreiPod::removePlaylist(const std::shared_ptr<Playlist>& playlist)
{
    ChangeScope change(*this, "playlists");
    std::erase(playlists_, playlist);
}

void ZQCoreiPod::addTrack(const std::shared_ptr<iPodTrack>& track)
{
    if (track)
        tracks_.push_back(track);
}

void ZQCoreiPod::removeTrack(const std::shared_ptr<iPodTrack>& track)
{
    for (const auto& playlist : playlists_)
        playlist->removeTrack(track);
    ChangeScope change(*this, "tracks");
    std::erase(tracks_, track);
}

std::shared_ptr<iPodTrack> ZQCoreiPod::trackWithID(std::uint64_t trackID, std::uint32_t mhiiID) const
{
    for (const auto& track : tracks_)
        if ((track->artworkLink() != 0 && track->artworkLink() == mhiiID) || track->dbid() == trackID)
            return track;
    return nullptr;
}

// ---- the binary library database: the walk is iTunesDBLoader's. It starts from the library's
// tracks and playlists (a walk replaces only what its file holds), and what it read is the
// library's also when it throws.

namespace {

/// Hands a walk the library's tracks and playlists, and takes them back when it ends.
struct BinaryWalk {
    BinaryWalk(ZQCoreiPod::Tracks& tracks, ZQCoreiPod::Playlists& playlists, std::vector<std::string>& warnings,
               std::shared_ptr<TrackLibrary> parent, std::string basePath)
        : loader(std::move(parent), std::move(basePath), std::move(tracks), std::move(playlists)), tracks_(tracks),
          playlists_(playlists), warnings_(warnings)
    {
    }
    ~BinaryWalk()
    {
        tracks_ = std::move(loader.tracks());
        playlists_ = std::move(loader.playlists());
        warnings_.insert(warnings_.end(), loader.warnings().begin(), loader.warnings().end());
    }
    iTunesDBLoader loader;

private:
    ZQCoreiPod::Tracks& tracks_;
    ZQCoreiPod::Playlists& playlists_;
    std::vector<std::string>& warnings_;
};

} // namespace

void ZQCoreiPod::parseiTunesDBWithData(const Data& data)
{
    BinaryWalk(tracks_, playlists_, loadWarnings_, weak_from_this().lock(), iPodBasePath_).loader.parseiTunesDBWithData(data);
}

void ZQCoreiPod::parseiTunesDBWithReader(XRDataReader& reader)
{
    BinaryWalk(tracks_, playlists_, loadWarnings_, weak_from_this().lock(), iPodBasePath_).loader.parseiTunesDBWithReader(reader);
}

ZQCoreiPod::Tracks ZQCoreiPod::parseTrackList(XRDataReader& reader)
{
    return BinaryWalk(tracks_, playlists_, loadWarnings_, weak_from_this().lock(), iPodBasePath_).loader.parseTrackList(reader);
}

ZQCoreiPod::Playlists ZQCoreiPod::parsePlaylistListWithReader(XRDataReader& reader, const Tracks& tracks,
                                                              const TrackIndexCache& cache)
{
    return BinaryWalk(tracks_, playlists_, loadWarnings_, weak_from_this().lock(), iPodBasePath_)
        .loader.parsePlaylistListWithReader(reader, tracks, cache);
}

Value::Dictionary ZQCoreiPod::parseSmartPlaylistRulesInData(const Data& data)
{
    return iTunesDBLoader::parseSmartPlaylistRulesInData(data);
}

std::string ZQCoreiPod::keyForStringMHODType(std::int32_t type) { return iTunesDBLoader::keyForStringMHODType(type); }

bool ZQCoreiPod::loadBinaryLibraryInFolder(const std::string& folder, const std::string& shownFolder)
{
    BinaryWalk walk(tracks_, playlists_, loadWarnings_, weak_from_this().lock(), iPodBasePath_);
    switch (walk.loader.loadBinaryLibraryInFolder(*files_, folder, shownFolder)) {
    case iTunesDBLoader::Source::None: return false;
    case iTunesDBLoader::Source::iTunesDB: librarySource_ = LibrarySource::iTunesDB; return true;
    case iTunesDBLoader::Source::iTunesCDB: librarySource_ = LibrarySource::iTunesCDB; return true;
    }
    return false;
}

// ---- the SQLite library databases: the load is SQLiteLibraryLoader's, into the library's own
// track and playlist lists (what was loaded before a failure stays).

bool ZQCoreiPod::loadFromLocalSQLiteDatabase(const std::string& library, const std::string& extras,
                                             const std::string& locations, const std::string& dynamics)
{
    SQLiteLibraryLoader::Contents contents{tracks_, playlists_, nullptr};
    const bool loaded = SQLiteLibraryLoader::loadFromLocalSQLiteDatabase(library, extras, locations, dynamics,
                                                                         weak_from_this().lock(), contents);
    addPlaylist(contents.podcastGroup);
    return loaded;
}

bool ZQCoreiPod::loadSQLiteLibraryInFolder(const std::string& folder)
{
    SQLiteLibraryLoader::Contents contents{tracks_, playlists_, nullptr};
    const bool loaded = SQLiteLibraryLoader::loadFromDevice(*files_, folder, weak_from_this().lock(), contents);
    addPlaylist(contents.podcastGroup);
    return loaded;
}

// ---- the single library database of iOS 5 and later: the load is MediaLibraryLoader's, and
// what it gives replaces the library's tracks and playlists.

bool ZQCoreiPod::loadFromMediaLibrary(const std::string& mediaRoot)
{
    auto contents = MediaLibraryLoader::loadFromMediaLibrary(*files_, mediaRoot, weak_from_this().lock());
    if (!contents)
        return false;
    takeMediaLibrary(std::move(*contents));
    librarySource_ = LibrarySource::MediaLibrary;
    return true;
}

void ZQCoreiPod::loadFromLocalMediaLibraryDatabase(const std::string& database, const std::string& mediaRoot)
{
    takeMediaLibrary(MediaLibraryLoader::loadFromLocalMediaLibraryDatabase(database, mediaRoot, weak_from_this().lock()));
}

void ZQCoreiPod::takeMediaLibrary(MediaLibraryLoader::Contents&& contents)
{
    loadWarnings_.insert(loadWarnings_.end(), contents.warnings.begin(), contents.warnings.end());
    {
        ChangeScope change(*this, "tracks");
        tracks_ = std::move(contents.tracks);
    }
    {
        ChangeScope change(*this, "playlists");
        playlists_ = std::move(contents.playlists);
    }
    addPlaylist(contents.podcastGroup);
    if (contents.artworkLoadError)
        artworkLoadError_ = std::move(contents.artworkLoadError);
}

// ---- the artwork database: the walk is ArtworkDBLoader's. A library object made outside a
// shared_ptr (none of the framework's are) still walks; its representations then have no
// library to read through and answer no image.

void ZQCoreiPod::parseArtworkDBAtPath(const std::string& path, const Tracks& tracks)
{
    ArtworkDBLoader::parseArtworkDBAtPath(*files_, path, tracks, weak_from_this().lock());
}

void ZQCoreiPod::parseArtworkDBWithData(const Data& data, const Tracks& tracks, const std::string& folderPath)
{
    ArtworkDBLoader::parseArtworkDBWithData(data, tracks, folderPath, weak_from_this().lock());
}

void ZQCoreiPod::parseImageListWithReader(XRDataReader& reader, const Tracks& tracks, const std::string& folderPath)
{
    ArtworkDBLoader::parseImageListWithReader(reader, tracks, folderPath, weak_from_this().lock());
}

void ZQCoreiPod::linkArtwork(const Tracks& tracks, const std::vector<std::shared_ptr<AlbumArt>>& artworks)
{
    ArtworkDBLoader::linkArtwork(tracks, artworks);
}

std::shared_ptr<XRDataReader> ZQCoreiPod::readerForFileAtPath(const std::string& path) const
{
    return XRDataReader::dataReaderWithDeviceFile(*files_, path, true);
}

} // namespace zq
