#pragma once

#include "ZQCore/foundation/Observable.h"

#include <memory>
#include <vector>

namespace zq {

class ZQCoreiPod;
class ZQCoreiPodRef;

/// What the application hangs on the framework's façade. The framework keeps it but sends it
/// nothing; devices are announced through the observable key "connectediPods".
class ZQCoreDelegate {
public:
    virtual ~ZQCoreDelegate() = default;
};

/// The framework's façade and its one long-lived object: the devices connected now (published
/// under the observable key "connectediPods") and every library object loaded so far, kept for
/// the life of the process so that a device that leaves and returns finds its library again.
///
/// Single-threaded: it is used from the application's main-loop thread only.
class ZQCore : public Observable {
public:
    /// The process's one instance, made on first use.
    static const std::shared_ptr<ZQCore>& sharedInstance();
    /// The shared instance's connected devices.
    static std::vector<std::shared_ptr<ZQCoreiPodRef>> connectediPodsOfSharedInstance();

    std::shared_ptr<ZQCoreDelegate> delegate() const { return delegate_; }
    void setDelegate(std::shared_ptr<ZQCoreDelegate> delegate) { delegate_ = std::move(delegate); }

    const std::vector<std::shared_ptr<ZQCoreiPodRef>>& connectediPods() const { return connectedDevices_; }
    const std::vector<std::shared_ptr<ZQCoreiPod>>& iPodInstances() const { return iPodInstances_; }
    bool supportsAFCDevices() const { return supportsAFCDevices_; }

    /// The first library object whose "SerialNumber" property equals the reference's serial
    /// number. A reference without a serial number matches nothing.
    std::shared_ptr<ZQCoreiPod> existingiPodForReference(const std::shared_ptr<ZQCoreiPodRef>& reference) const;
    /// Keeps a newly loaded library object (called at the end of its load).
    void iPodWasCreated(const std::shared_ptr<ZQCoreiPod>& library);

private:
    ZQCore();

    std::shared_ptr<ZQCoreDelegate> delegate_;
    std::vector<std::shared_ptr<ZQCoreiPodRef>> connectedDevices_;
    std::vector<std::shared_ptr<ZQCoreiPod>> iPodInstances_;
    bool supportsAFCDevices_ = false;
};

} // namespace zq
