#include "ZQCore/afc/AFCiPodRef.h"

#include "ZQCore/afc/AFCDevice.h"
#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/afc/AFCiPod.h"
#include "ZQCore/foundation/Image.h"
#include "ZQCore/foundation/Resources.h"

namespace zq {

std::shared_ptr<AFCiPodRef> AFCiPodRef::initWithDevice(const std::shared_ptr<AFCDevice>& device)
{
    std::shared_ptr<AFCiPodRef> reference(new AFCiPodRef());
    reference->dev_ = device;
    std::optional<std::string> name;
    if (device && device->device() && device->device()->device())
        name = device->device()->device()->copyValue(std::nullopt, "DeviceName");
    reference->setName(name ? name : std::string("iPod"));
    return reference;
}

std::optional<std::string> AFCiPodRef::serialNumber() const
{
    if (!dev_ || !dev_->device() || !dev_->device()->device())
        return std::nullopt;
    return dev_->device()->device()->copyValue(std::nullopt, "SerialNumber");
}

std::shared_ptr<Image> AFCiPodRef::icon() const
{
    // Loaded once for the class, like the registered image it stands for.
    static const std::shared_ptr<Image> touchImage = Resources::imageForResource("Touch", "png");
    return touchImage;
}

std::shared_ptr<ZQCoreiPod> AFCiPodRef::loadLibrary(const std::shared_ptr<ZQCoreiPodRef>& self) const
{
    return AFCiPod::initWithiPodReference(self);
}

} // namespace zq
