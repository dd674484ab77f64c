#pragma once

#include "ZQCore/afc/MobileDevice.h"
#include "ZQCore/foundation/Export.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace zq {

/// A small wrapper of one platform device record, as the device factory reports it.
class ZQ_EXPORT AFCDeviceRef {
public:
    /// Reads the device's serial number; the name is the serial number too (the library's
    /// display name comes later from its database).
    static std::shared_ptr<AFCDeviceRef> initWithAFCDeviceStruct(const std::shared_ptr<AMDevice>& device);

    const std::shared_ptr<AMDevice>& device() const { return device_; }
    const std::optional<std::string>& serialNumber() const { return serialNumber_; }
    const std::optional<std::string>& name() const { return name_; }
    /// Read from the device record on every call.
    std::uint32_t deviceID() const { return device_ ? device_->deviceID() : 0; }
    std::uint32_t productID() const { return device_ ? device_->productID() : 0; }

private:
    AFCDeviceRef() = default;

    std::shared_ptr<AMDevice> device_;
    std::optional<std::string> serialNumber_;
    std::optional<std::string> name_;
};

} // namespace zq
