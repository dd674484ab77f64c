#pragma once

#include "ZQCore/afc/AFCFactory.h"
#include "ZQCore/foundation/Export.h"
#include "ZQCore/foundation/Observable.h"

#include <memory>
#include <vector>

namespace zq {

class VolumeMonitor;
class ZQCoreiPod;
class ZQCoreiPodRef;

/// What the application hangs on the framework's façade. The framework keeps it but sends it
/// nothing; devices are announced through the observable key "connectediPods".
class ZQ_EXPORT ZQCoreDelegate {
public:
    virtual ~ZQCoreDelegate() = default;
};

/// The framework's façade and its one long-lived object: the devices connected now (published
/// under the observable key "connectediPods") and every library object loaded so far, kept for
/// the life of the process so that a device that leaves and returns finds its library again.
///
/// Devices are found without polling. At start-up every mounted removable volume (see
/// VolumeMonitor for the rule) that holds an iPod_Control folder gets a reference; from then on
/// each change of the mount table, delivered through the GLib main context that was
/// thread-default when the shared instance was made, reconciles the list (checkForNewiPods).
/// The application must run that context (a GMainLoop, or GTK's) for changes to arrive.
///
/// Single-threaded: it is used from that main context's thread only.
class ZQ_EXPORT ZQCore : public Observable, public AFCFactoryDelegate {
public:
    /// The process's one instance, made on first use (on the main-loop thread: the mount
    /// events are delivered on the main context that is thread-default then).
    static const std::shared_ptr<ZQCore>& sharedInstance();
    /// The shared instance's connected devices.
    static std::vector<std::shared_ptr<ZQCoreiPodRef>> connectediPodsOfSharedInstance();

    /// existingiPodForReference and iPodWasCreated of the shared instance, without making it:
    /// opening a device by its path needs no watching of volumes and phones, which costs a
    /// command-line program much of its start. Library objects loaded before the shared
    /// instance is made are kept aside and become its iPodInstances when it is.
    static std::shared_ptr<ZQCoreiPod> existingLibraryForReference(const std::shared_ptr<ZQCoreiPodRef>& reference);
    static void libraryWasLoaded(const std::shared_ptr<ZQCoreiPod>& library);

    std::shared_ptr<ZQCoreDelegate> delegate() const { return delegate_; }
    void setDelegate(std::shared_ptr<ZQCoreDelegate> delegate) { delegate_ = std::move(delegate); }

    const std::vector<std::shared_ptr<ZQCoreiPodRef>>& connectediPods() const { return connectedDevices_; }
    /// The library objects loaded so far (a copy: libraries may be loaded on other threads).
    std::vector<std::shared_ptr<ZQCoreiPod>> iPodInstances() const;
    bool supportsAFCDevices() const { return supportsAFCDevices_; }

    /// The first library object whose "SerialNumber" property equals the reference's serial
    /// number. A reference without a serial number matches nothing.
    std::shared_ptr<ZQCoreiPod> existingiPodForReference(const std::shared_ptr<ZQCoreiPodRef>& reference) const;
    /// Keeps a newly loaded library object (called at the end of its load).
    void iPodWasCreated(const std::shared_ptr<ZQCoreiPod>& library);

    /// Reconciles connectediPods with the mounted volumes; run on every mount and unmount.
    /// A device volume without a reference gets one (and the library object kept for its
    /// serial number is marked connected again); a volume reference whose volume is gone
    /// leaves the list (and its library object is marked not connected). While no device
    /// volume at all is mounted, every volume reference leaves the list. When the list
    /// changed, will-change and did-change notices of "connectediPods" follow, both after the
    /// change; otherwise nothing is sent. Throws "ZQCoreiPodNotFoundException" when a volume
    /// vanishes between being listed and being read.
    void checkForNewiPods();

    // Mobile devices (AFC) join and leave connectediPods through these two calls of the AFC
    // device factory, whose delegate this object becomes at start-up (supportsAFCDevices).

    /// Opens a session on the arrived device and lists an AFCiPodRef for it (a device already
    /// listed gets a second one). The library object kept for its serial number gets the new
    /// session and is marked connected. Both change notices are sent, the will-change first;
    /// "AFCDevice" from a session that cannot be opened (an unpaired device) leaves with
    /// nothing listed.
    void AFCDeviceWasConnected(const std::shared_ptr<AFCDeviceRef>& device) override;
    /// Drops the listed mobile device with the departed device's id (the last one listed when
    /// several match) and marks its library object not connected. Both change notices are sent
    /// even when no device matched.
    void AFCDeviceWasDisconnected(const std::shared_ptr<AFCDeviceRef>& device) override;

    ~ZQCore() override;

private:
    ZQCore();

    std::shared_ptr<ZQCoreDelegate> delegate_;
    std::vector<std::shared_ptr<ZQCoreiPodRef>> connectedDevices_;
    std::vector<std::shared_ptr<ZQCoreiPod>> iPodInstances_;
    bool supportsAFCDevices_ = false;
    std::unique_ptr<VolumeMonitor> volumeMonitor_;
};

} // namespace zq
