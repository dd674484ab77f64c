#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/reader/RecordLayouts.h"
#include "ZQCore/reader/XRDataReader.h"

#include "ZQCore/afc/AFCiPod.h"
#include "ZQCore/device/ZQCore.h"
#include "ZQCore/device/SysInfoFiles.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/ConfinedOpen.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/File.h"
#include "ZQCore/foundation/Log.h"
#include "ZQCore/foundation/Resources.h"
#include "ZQCore/model/Podcasts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace zq {

namespace fs = std::filesystem;

std::shared_ptr<ZQCoreiPod> ZQCoreiPod::initWithiPodReference(const std::shared_ptr<ZQCoreiPodRef>& reference)
{
    // A device reached through a session has a library object of its own kind.
    if (reference && !reference->isMountedVolume())
        return AFCiPod::initWithiPodReference(reference);
    if (auto existing = ZQCore::existingLibraryForReference(reference))
        return existing;
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
    const fs::path itlp = base / control / "iTunes" / "iTunes Library.itlp";
    if (fileExists(itlp)) {
        const fs::path library = itlp / "Library.itdb", extras = itlp / "Extras.itdb",
                       locations = itlp / "Locations.itdb", dynamics = itlp / "Dynamic.itdb";
        // SQLite opens the files by their paths: each is checked first to be a file of the
        // device, not a link out of it.
        const auto inside = [this](const fs::path& file) { return fileExists(file) && !refusesPath(file); };
        if (inside(library) && inside(extras) && inside(locations) && inside(dynamics)) {
            try {
                if (loadFromLocalSQLiteDatabase(library, extras, locations, dynamics)) {
                    needsBinaryDatabase = false;
                    librarySource_ = LibrarySource::SQLiteDatabases;
                }
            } catch (const Exception& error) {
                log("Could not load the SQLite library databases with the error: " + error.reason() +
                    " - reading iTunesDB instead.");
            }
        }
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

bool ZQCoreiPod::loadBinaryDatabase(const std::string& path, const std::string& shownAs)
{
    auto unreadable = [&](ErrorKind kind, const std::string& why) {
        return Exception(kind, "ZQCoreiPodLibraryUnreadableException", "The library database " + shownAs + " " + why);
    };
    std::shared_ptr<XRDataReader> reader;
    if (readsFilesThroughDevice()) {
        if (!sizeOfFileAtPath(path))
            return false;
        reader = readerForFileAtPath(path);
    } else {
        // A file that is there but cannot be read is an error, never a library without tracks;
        // one that is a link out of the device is never read at all. One open serves the checks
        // and the walk.
        const int fd = openFileAtPath(path, O_RDONLY);
        if (fd < 0) {
            const int error = errno;
            if (error == ENOENT || error == ENOTDIR)
                return false;
            throw unreadable(kindOfErrno(error), error == EXDEV
                                                     ? std::string("is ") + kRefusedOutsideDevice + "."
                                                     : std::string("cannot be read: ") + std::strerror(error) + ".");
        }
        struct stat info {};
        if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
            ::close(fd);
            throw unreadable(ErrorKind::Damaged, "is not a file.");
        }
        reader = XRDataReader::dataReaderWithDescriptor(fd, path, true);
    }
    if (!reader)
        throw unreadable(ErrorKind::Other, "cannot be read.");
    if (reader->length() == 0)
        throw unreadable(ErrorKind::Damaged, "is empty (0 bytes).");
    // Every library database begins with its "mhbd" record; anything else (a file copied over
    // it, random bytes) would otherwise walk as an empty library.
    const auto magic = reader->peekRawBytes(4);
    if (magic.size() != 4 || std::memcmp(magic.data(), "mhbd", 4) != 0)
        throw unreadable(ErrorKind::Damaged, "is not a library database: it does not begin with \"mhbd\".");
    // Nor is one whose first data set is not where its header says.
    // (Headers are a few hundred bytes long; 64 KiB is far beyond any a device writes.)
    if (const auto header = reader->peekRawBytes(24); header.size() == 24) {
        const std::uint32_t headerLength = layout::le32(header, layout::ChunkStart::headerLength);
        const auto dataSets = static_cast<std::int32_t>(layout::le32(header, layout::MHBDHeader::dataSetCount));
        constexpr std::uint32_t kLongestHeader = 1u << 16;
        // A file cut short inside its header is damaged, which the walk reports.
        bool misplaced = headerLength < 24 || headerLength > kLongestHeader;
        if (!misplaced) {
            const auto start = reader->peekRawBytes(headerLength + 4);
            misplaced = start.size() == headerLength + 4 && std::memcmp(start.data() + headerLength, "mhsd", 4) != 0;
        }
        // Devices write a handful of data sets; a count past a thousand (or below 0) is no count.
        constexpr std::int32_t kMostDataSets = 1000;
        if (dataSets < 0 || dataSets > kMostDataSets || (dataSets > 0 && misplaced))
            throw unreadable(ErrorKind::Damaged, "is not a library database: its header does not describe its data sets.");
    }
    try {
        parseiTunesDBWithReader(*reader);
    } catch (const Exception& error) {
        throw error.withReason("The library database " + shownAs + " is damaged: " + error.reason());
    }
    librarySource_ = LibrarySource::iTunesDB;
    return true;
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

Value::Dictionary ZQCoreiPod::deviceInfo() const
{
    // The free size comes first; a figure that cannot be read ends the list, so a volume whose
    // free size is unknown reports nothing at all.
    Value::Dictionary info;
    struct statvfs volume {};
    if (::statvfs(iPodBasePath_.c_str(), &volume) != 0)
        return info;
    info["FSFreeBytes"] = static_cast<std::int64_t>(static_cast<std::uint64_t>(volume.f_bavail) * volume.f_frsize);
    info["FSTotalBytes"] = static_cast<std::int64_t>(static_cast<std::uint64_t>(volume.f_blocks) * volume.f_frsize);
    return info;
}

int ZQCoreiPod::openFileAtPath(const std::string& path, int flags) const
{
    if (iPodBasePath_.empty())
        return ::open(path.c_str(), flags | ((flags & O_PATH) ? 0 : O_NONBLOCK) | O_CLOEXEC);
    return openInsideFolder(iPodBasePath_, path, flags);
}

bool ZQCoreiPod::refusesPath(const std::string& path) const
{
    if (iPodBasePath_.empty())
        return false;
    const int fd = openFileAtPath(path, O_PATH);
    const int error = errno;
    if (fd >= 0)
        ::close(fd);
    return fd < 0 && error == EXDEV;
}

std::optional<Data> ZQCoreiPod::contentsOfFileAtPath(const std::string& path) const
{
    return Data::contentsOfDescriptor(openFileAtPath(path, O_RDONLY));
}

std::shared_ptr<XRDataReader> ZQCoreiPod::readerForFileAtPath(const std::string& path) const
{
    return XRDataReader::dataReaderWithDescriptor(openFileAtPath(path, O_RDONLY), path, true);
}

std::optional<Data> ZQCoreiPod::chunkOfFileAtPath(const std::string& path, Range range) const
{
    auto file = File::adopt(openFileAtPath(path, O_RDONLY));
    if (!file)
        return std::nullopt;
    return file->readRange(range.location, range.length);
}

} // namespace zq
