#include "ZQCore/afc/AFCiPod.h"

#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/afc/AFCFiles.h"
#include "ZQCore/afc/AFCiPodRef.h"
#include "ZQCore/device/ZQCore.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Log.h"

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>

namespace zq {

namespace fs = std::filesystem;

namespace {

constexpr const char* kLibraryFolder = "/iTunes_Control/iTunes/iTunes Library.itlp";
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

AFCiPod::AFCiPod() : afcFiles_(std::make_shared<AFCFiles>()) {}

void AFCiPod::loadFromDevice(const std::shared_ptr<AFCiPodRef>& reference)
{
    setFiles(afcFiles_);
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

    if (auto attributes = device_->liveInterface()->getDeviceAttributes()) {
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

bool AFCiPod::loadFromSQLiteDatabases() { return loadSQLiteLibraryInFolder(kLibraryFolder); }

void AFCiPod::setDevice(const std::shared_ptr<AFCDevice>& device)
{
    device_ = device;
    afcFiles_->setDevice(device);
    if (device_)
        device_->setDelegate(std::static_pointer_cast<AFCiPod>(shared_from_this()));
}

void AFCiPod::setIsConnected(bool connected)
{
    ZQCoreiPod::setIsConnected(connected);
    afcFiles_->setStopped(!connected && loaded_);
}

bool AFCiPod::isDeviceGone(const Exception& error) { return endsDeviceAccess(error.kind()); }

void AFCiPod::deviceWasDisconnected(const std::shared_ptr<AFCDevice>&) { setIsConnected(false); }

} // namespace zq
