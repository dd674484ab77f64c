#pragma once

#include "ZQCore/afc/AFCDevice.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Export.h"

#include <memory>

namespace zq {

class AFCFiles;
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

    /// Reads stop at once (answering nothing, as a volume that has gone does) while a loaded
    /// library is not connected, and go on when it is again.
    void setIsConnected(bool connected) override;

    void deviceWasDisconnected(const std::shared_ptr<AFCDevice>& device) override;

    /// True for the failures after which nothing more can be read from the device: it left,
    /// stopped answering, or the reading was cancelled.
    static bool isDeviceGone(const Exception& error);

private:
    AFCiPod();
    void loadFromDevice(const std::shared_ptr<AFCiPodRef>& reference);

    std::shared_ptr<AFCDevice> device_;
    std::shared_ptr<AFCFiles> afcFiles_;
    bool loaded_ = false;  // until then the library is read while not yet marked connected
};

} // namespace zq
