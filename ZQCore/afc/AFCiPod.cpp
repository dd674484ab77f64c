#include "ZQCore/afc/AFCiPod.h"

#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/afc/AFCiPodRef.h"
#include "ZQCore/device/ZQCore.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Log.h"
#include "ZQCore/reader/XRDataReader.h"

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <filesystem>

namespace zq {

namespace fs = std::filesystem;

namespace {

constexpr const char* kLibraryFolder = "/iTunes_Control/iTunes/iTunes Library.itlp";
constexpr std::array<const char*, 4> kDatabaseNames = {"Library.itdb", "Extras.itdb", "Locations.itdb", "Dynamic.itdb"};
constexpr const char* kArtworkDatabase = "/iTunes_Control/Artwork/ArtworkDB";

} // namespace

std::shared_ptr<ZQCoreiPod> AFCiPod::initWithiPodReference(const std::shared_ptr<ZQCoreiPodRef>& reference)
{
    if (auto existing = ZQCore::existingLibraryForReference(reference))
        return existing;
    auto mobile = std::dynamic_pointer_cast<AFCiPodRef>(reference);
    if (!mobile || !mobile->device())
        throw Exception(ErrorKind::NotFound, "ZQCoreiPodNotFoundException", "Exception: Could not init ZQCoreiPod - path doesn't exist.");
    std::shared_ptr<AFCiPod> library(new AFCiPod());
    library->loadFromDevice(mobile);
    return library;
}

void AFCiPod::loadFromDevice(const std::shared_ptr<AFCiPodRef>& reference)
{
    setDevice(reference->device());
    const std::shared_ptr<AMDevice>& handle = device_->device()->device();
    name_ = handle->copyValue(std::nullopt, "DeviceName");
    if (!name_)
        name_ = "iPod";

    Value::Dictionary properties;
    if (auto serial = handle->copyValue(std::nullopt, "SerialNumber"))
        properties["SerialNumber"] = *serial;
    properties_ = std::move(properties);
    additionalData_ = {};

    if (auto attributes = device_->deviceInterface()->getDeviceAttributes()) {
        if (auto model = attributes->find("Model"); model != attributes->end())
            autodetectedType_ = model->second.find("iPod") != std::string::npos ? 15 : 16;
    }
    iPodBasePath_ = "/";

    // iOS 5 and later keep the whole library in MediaLibrary.sqlitedb; an unreadable one is an
    // error rather than a reason to show an older, stale database.
    const bool fromMediaLibrary = loadFromMediaLibrary("/");
    bool fromSQLite = false;
    std::optional<Exception> sqliteFailure;
    if (!fromMediaLibrary) try {
        fromSQLite = loadFromSQLiteDatabases();
    } catch (const Exception& error) {
        // Damaged SQLite databases leave the binary database to go by, as on a disk-mode
        // device; a device that has gone ends the load.
        if (isDeviceGone(error))
            throw;
        tracks_.clear();
        playlists_.clear();
        sqliteFailure = error;
        log("Could not load the SQLite library databases with the error: " + error.reason() +
            " - reading iTunesDB instead.");
    }
    if (fromSQLite)
        librarySource_ = LibrarySource::SQLiteDatabases;
    if (!fromMediaLibrary && !fromSQLite) {
        log("AFCiPod initWithiPodReference: Didn't load from SQLite");
        // A device without any library database has no library (librarySource() says so); one
        // whose database cannot be read stops here with the reason, and so does one whose
        // SQLite library is damaged when there is no iTunesCDB or iTunesDB to go by.
        if (!loadBinaryLibraryInFolder((fs::path("/iTunes_Control") / "iTunes").string(), "iTunes_Control/iTunes") &&
            sqliteFailure)
            throw *sqliteFailure;
    }

    // The artwork comes over the session too. A fault in its database costs the artwork, never
    // the library; a device that has gone stops the load like any other read.
    try {
        parseArtworkDBAtPath(kArtworkDatabase, tracks_);
    } catch (const Exception& error) {
        if (isDeviceGone(error))
            throw;
        artworkLoadError_ = error.reason();
        log("Could not load device artwork database with the error: " + error.reason() + " - skipping.");
    }

    // Loaders may have left notes here; the library starts without them.
    additionalData_ = {};
    setIsConnected(true);
    loaded_ = true;
    ZQCore::libraryWasLoaded(shared_from_this());
}

bool AFCiPod::loadFromSQLiteDatabases()
{
    if (!device_->deviceInterface()->isDirectoryAtPath(kLibraryFolder))
        return false;
    std::array<std::string, 4> remote;
    for (std::size_t i = 0; i < remote.size(); ++i) {
        remote[i] = std::string(kLibraryFolder) + "/" + kDatabaseNames[i];
        if (!device_->fileExistsAtPath(remote[i]))
            return false;
    }

    // SQLite opens files, not streams: the databases are copied to a folder of their own,
    // which goes again on every way out (a failed copy, a damaged database, a device that left).
    gchar* uuid = g_uuid_string_random();
    const fs::path folder = fs::path(g_get_tmp_dir()) / uuid;
    g_free(uuid);
    std::error_code ignored;
    if (!fs::create_directory(folder, ignored))
        return false;
    struct Remover {
        fs::path folder;
        ~Remover()
        {
            std::error_code ignored;
            fs::remove_all(folder, ignored);
        }
    } remover{folder};

    std::array<std::string, 4> local;
    bool copied = true;
    for (std::size_t i = 0; i < local.size(); ++i) {
        local[i] = (folder / kDatabaseNames[i]).string();
        const int out = ::open(local[i].c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (out < 0) {
            copied = false;
            continue;
        }
        const FileCopyResult result = device_->copyFileAtPath(remote[i], out);
        if (::close(out) != 0 || !result.completed)
            copied = false;
    }
    return copied && loadFromLocalSQLiteDatabase(local[0], local[1], local[2], local[3]);
}

void AFCiPod::setDevice(const std::shared_ptr<AFCDevice>& device)
{
    device_ = device;
    if (device_)
        device_->setDelegate(std::static_pointer_cast<AFCiPod>(shared_from_this()));
}

Value::Dictionary AFCiPod::deviceInfo() const
{
    Value::Dictionary info;
    if (auto attributes = device_->deviceInterface()->getDeviceAttributes())
        for (const auto& [key, value] : *attributes)
            info[key] = value;
    return info;
}

// A library whose device is known to have left answers at once, as a disk-mode library whose
// volume has gone does; a device that fails during a read throws (see AFCDevice).
std::optional<Data> AFCiPod::contentsOfFileAtPath(const std::string& path) const
{
    if (!isConnected() && loaded_)
        return std::nullopt;
    return device_->contentsOfFileAtPath(path);
}

std::optional<Data> AFCiPod::chunkOfFileAtPath(const std::string& path, Range range) const
{
    if ((!isConnected() && loaded_) || !device_->fileExistsAtPath(path))
        return std::nullopt;
    return device_->chunkOfFileAtPath(path, range);
}

std::optional<std::uint64_t> AFCiPod::sizeOfFileAtPath(const std::string& path) const
{
    if (!device_ || !device_->deviceInterface())
        return std::nullopt;
    const auto attributes = device_->deviceInterface()->getAttributesAtPath(path);
    if (!attributes)
        return std::nullopt;
    const auto type = attributes->find("st_ifmt");
    const auto size = attributes->find("st_size");
    if (type == attributes->end() || type->second != "S_IFREG" || size == attributes->end())
        return std::nullopt;
    // The service answers in decimal text; anything else is no size rather than a wrong one.
    std::uint64_t value = 0;
    const auto* end = size->second.data() + size->second.size();
    const auto [stop, error] = std::from_chars(size->second.data(), end, value);
    if (error != std::errc() || stop != end || size->second.empty())
        return std::nullopt;
    return value;
}

FileCopyResult AFCiPod::copyFileAtPath(const std::string& path, int destination, const FileCopyProgress& progress) const
{
    if (!isConnected() && loaded_)
        return {.error = ENODEV};
    return device_->copyFileAtPath(path, destination, progress);
}

bool AFCiPod::isDeviceGone(const Exception& error)
{
    switch (error.kind()) {
    case ErrorKind::DeviceGone:
    case ErrorKind::NotAnswering:
    case ErrorKind::Cancelled:
        return true;
    default:
        return false;
    }
}

std::shared_ptr<XRDataReader> AFCiPod::readerForFileAtPath(const std::string& path) const
{
    auto contents = contentsOfFileAtPath(path);
    if (!contents)
        return nullptr;
    return XRDataReader::dataReaderWithData(contents, true);
}

void AFCiPod::deviceWasDisconnected(const std::shared_ptr<AFCDevice>&) { setIsConnected(false); }

} // namespace zq
