// The mobile devices behind usbmuxd as zqpod meets them: gathered before a command reads the
// connected list, and named by their UDID.

#include "MobileDevices.h"
#include "TerminalText.h"

#include "ZQCore/afc/AFCDevice.h"
#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/afc/AFCFactory.h"
#include "ZQCore/afc/AFCiPodRef.h"
#include "ZQCore/afc/MobileDevice.h"
#include "ZQCore/device/ZQCore.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Log.h"
#include "ZQCore/foundation/NotificationCenter.h"

#include <chrono>
#include <iostream>
#include <utility>

namespace zqpod {

namespace {

std::string explain(const zq::AFCDeviceOpenFailure& failure)
{
    // A device refuses a session only to a computer it does not trust; that one thing a person
    // can put right, so it is said how.
    if (failure.kind == zq::ErrorKind::Refused)
        return failure.description() +
               "\n  This computer is not trusted by the device: unlock it, tap \"Trust\" when asked, and pair\n"
               "  it (for example with idevicepair pair), then connect it again.";
    return failure.description();
}

/// Devices that were attached but could not be opened (each said on stderr as it failed).
int gUnopenedDevices = 0;

} // namespace

int unopenedMobileDevices() { return gUnopenedDevices; }

void collectMobileDevices()
{
    static bool collected = false;
    if (collected)
        return;
    collected = true;
    // Of what the framework has to say while devices arrive, only the devices that could not be
    // opened matter to a person here; its log lines are not for the terminal.
    zq::setLogHandler([](const std::string&) {});
    zq::NotificationCenter::defaultCenter().addObserver(
        "AFC_DeviceCouldNotBeOpened", [](const std::string&, const std::any& object) {
            if (const auto* failure = std::any_cast<zq::AFCDeviceOpenFailure>(&object)) {
                ++gUnopenedDevices;
                std::cerr << "zqpod: " << explain(*failure) << std::endl;
            }
        });
    zq::ZQCore::sharedInstance();
    zq::AFCFactory::factory()->waitForAttachedDevices(std::chrono::seconds(5));
    if (const auto silent = mobileDevicesUnreachable())
        std::cerr << "zqpod: " << *silent << ": phones and iPod touches cannot be listed. Restart it (for example: "
                  << "systemctl restart usbmuxd) and try again; --timeout sets how many seconds to wait.\n";
}

std::optional<std::string> mobileDevicesUnreachable() { return zq::MobileDevicePlatform::shared()->notAnswering(); }

std::optional<std::string> udidOf(const zq::ZQCoreiPodRef& reference)
{
    auto mobile = dynamic_cast<const zq::AFCiPodRef*>(&reference);
    if (!mobile || !mobile->device() || !mobile->device()->device() || !mobile->device()->device()->device())
        return std::nullopt;
    return mobile->device()->device()->device()->copyValue(std::nullopt, "UniqueDeviceID");
}

} // namespace zqpod
