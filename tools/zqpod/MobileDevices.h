#pragma once

#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zq {
class ZQCoreiPodRef;
}

namespace zqpod {

/// Lets the mobile devices attached now (iPhones, iPod touches behind usbmuxd) arrive in the
/// framework's list before a command reads it; an application with a main loop simply lets them
/// come. A device that refuses a session (not paired, not trusted) is explained on standard error.
void collectMobileDevices();
/// Why the mobile devices cannot be known (the USB daemon did not answer); no value when they can.
std::optional<std::string> mobileDevicesUnreachable();
/// How many attached mobile devices could not be opened (each was said on stderr).
int unopenedMobileDevices();

/// The UDID of a mobile device's reference; no value for a disk-mode iPod.
std::optional<std::string> udidOf(const zq::ZQCoreiPodRef& reference);

} // namespace zqpod
