#pragma once

#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Export.h"

#include <memory>

namespace zq {

class AFCDevice;

/// A mobile device in the list of connected devices: it answers the questions of a volume
/// reference from its session. Its path is the device's root, "/", which volume events never
/// judge.
class ZQ_EXPORT AFCiPodRef : public ZQCoreiPodRef {
public:
    /// Named by the device's "DeviceName", or "iPod" when it gives none.
    static std::shared_ptr<AFCiPodRef> initWithDevice(const std::shared_ptr<AFCDevice>& device);

    const std::shared_ptr<AFCDevice>& device() const { return dev_; }
    void setDevice(const std::shared_ptr<AFCDevice>& device) { dev_ = device; }

    std::optional<std::string> path() const override { return std::string("/"); }
    /// Asked of the device on every call.
    std::optional<std::string> serialNumber() const override;
    /// The picture of a touch-screen device (the framework's "Touch" image, 128 by 128).
    std::shared_ptr<Image> icon() const override;
    bool isMountedVolume() const override { return false; }

protected:
    /// An AFCiPod, reading the device over its session.
    std::shared_ptr<ZQCoreiPod> loadLibrary(const std::shared_ptr<ZQCoreiPodRef>& self) const override;

private:
    AFCiPodRef() = default;

    std::shared_ptr<AFCDevice> dev_;
};

} // namespace zq
