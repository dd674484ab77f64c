#pragma once

#include "ZQCore/afc/AFCDevice.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Export.h"

#include <memory>

namespace zq {

class AFCiPodRef;

/// The library of a mobile device reached over AFC. It copies the four SQLite databases into a
/// temporary folder and loads them (falling back to the binary iTunesDB), and reads every later
/// file (track files, artwork) over the device's session. Its base path is "/".
///
/// The object outlives a departure: it is marked not connected, and when the device returns
/// ZQCore hands it the new session.
class ZQ_EXPORT AFCiPod : public ZQCoreiPod, public AFCDeviceDelegate {
public:
    /// The library of the device `reference` (an AFCiPodRef) stands for, or the library object
    /// already loaded for the same serial number. Throws "ZQCoreiPodNotFoundException" for a
    /// reference without a session; "<application identifier>.SQLiteFailed" from the SQLite
    /// loader passes through (leaving its temporary copies behind).
    static std::shared_ptr<ZQCoreiPod> initWithiPodReference(const std::shared_ptr<ZQCoreiPodRef>& reference);

    /// Copies the four databases of "iTunes Library.itlp" into a new folder in the temporary
    /// directory, loads them, and removes the copies and the folder. True only when all four
    /// were copied and loaded.
    bool loadFromSQLiteDatabases();

    const std::shared_ptr<AFCDevice>& device() const { return device_; }
    /// Uses another session of the device (it returned), and listens for its departure.
    void setDevice(const std::shared_ptr<AFCDevice>& device);

    std::optional<std::string> name() const override { return name_; }
    /// The device's attributes as its file conduit reports them ("Model", "FSTotalBytes", ...).
    Value::Dictionary deviceInfo() const override;
    std::optional<Data> contentsOfFileAtPath(const std::string& path) const override;
    /// No value unless a regular file is at the path.
    std::optional<Data> chunkOfFileAtPath(const std::string& path, Range range) const override;
    std::shared_ptr<XRDataReader> readerForFileAtPath(const std::string& path) const override;
    bool readsFilesThroughDevice() const override { return true; }
    /// The size the device's file service reports ("st_size"); no value when the file is not a
    /// regular file there or the device is gone.
    std::optional<std::uint64_t> sizeOfFileAtPath(const std::string& path) const override;

    /// Streams the file over the session in constant memory; throws when the device fails
    /// (see AFCDevice's reads).
    FileCopyResult copyFileAtPath(const std::string& path, int destination,
                                  const FileCopyProgress& progress = {}) const override;

    void deviceWasDisconnected(const std::shared_ptr<AFCDevice>& device) override;

    /// True for the failures after which nothing more can be read from the device: it left,
    /// stopped answering, or the reading was cancelled.
    static bool isDeviceGone(const Exception& error);

private:
    AFCiPod() = default;
    void loadFromDevice(const std::shared_ptr<AFCiPodRef>& reference);

    std::shared_ptr<AFCDevice> device_;
    bool loaded_ = false;  // until then the library is read while not yet marked connected
};

} // namespace zq
