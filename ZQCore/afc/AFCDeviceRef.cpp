#include "ZQCore/afc/AFCDeviceRef.h"

namespace zq {

std::shared_ptr<AFCDeviceRef> AFCDeviceRef::initWithAFCDeviceStruct(const std::shared_ptr<AMDevice>& device)
{
    std::shared_ptr<AFCDeviceRef> reference(new AFCDeviceRef());
    reference->device_ = device;
    if (device) {
        reference->serialNumber_ = device->copyValue(std::nullopt, "SerialNumber");
        reference->name_ = device->copyValue(std::nullopt, "SerialNumber");
    }
    return reference;
}

} // namespace zq
