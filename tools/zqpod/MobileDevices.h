#pragma once

#include <iosfwd>
#include <memory>
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

/// The device a command names: the volume of a disk-mode iPod mounted at `device`, or else a
/// connected device (mobile devices included) whose serial number, UDID or name is `device`.
/// Throws "ZQCoreiPodNotFoundException" when it is neither.
std::shared_ptr<zq::ZQCoreiPodRef> referenceForDevice(const std::string& device);

/// zqpod get DEVICE TRACK-ID OUTFILE: copies one track's file off the device ("-" writes to
/// standard output). Returns the exit status.
int copyTrack(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

} // namespace zqpod
