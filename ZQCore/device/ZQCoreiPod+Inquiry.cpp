// The library object's side of the device-information inquiry: from the volume to the device
// that answers it, and the answer kept as SysInfoExtended.

#include "ZQCore/device/ZQCoreiPod.h"

#include <glib.h>

namespace zq {

std::optional<std::string> ZQCoreiPod::getIOKitServiceForPath(const std::string& path) { return blockDeviceForPath(path); }

std::optional<std::string> ZQCoreiPod::bsdNameForPath(const std::string& path)
{
    const auto device = blockDeviceForPath(path);
    return device ? kernelNameOfBlockDevice(*device) : std::nullopt;
}

std::optional<DeviceInformationNub> ZQCoreiPod::informationNubForPath(const std::string& path) const
{
    const auto service = getIOKitServiceForPath(path);
    return service ? informationNubAboveBlockDevice(*service) : std::nullopt;
}

std::unique_ptr<SCSITaskDeviceInterface> ZQCoreiPod::createDeviceInterface(const DeviceInformationNub& entry) const
{
    return CreateDeviceInterfaceUsingSTUC(entry.scsiDeviceNode);
}

std::string ZQCoreiPod::getiPodXML(const DeviceInformationNub& entry) const
{
    auto interface = createDeviceInterface(entry);
    return interface ? readiPodXMLThroughInterface(*interface) : std::string();
}

void ZQCoreiPod::obtainSysInfoExtendedFromDevice(const std::string& path)
{
    const auto nub = informationNubForPath(iPodBasePath_);
    if (!nub)
        return;
    const std::string xml = getiPodXML(*nub);
    if (xml.empty())
        return;
    // Written to a temporary file beside it and renamed into place, so that an unplugged
    // device or a full volume never leaves a half-written SysInfoExtended that the next load
    // would trust. A failure is no error: the identity then comes from SysInfo.
    GError* error = nullptr;
    if (!g_file_set_contents(path.c_str(), xml.data(), static_cast<gssize>(xml.size()), &error))
        g_clear_error(&error);
}

} // namespace zq
