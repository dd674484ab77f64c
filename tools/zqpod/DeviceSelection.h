#pragma once

// Which device a command works on: named by mount path, serial number or name, or the one
// device connected now. Shared by every command that opens a library.

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace zq {
class ZQCoreiPod;
class ZQCoreiPodRef;
}

namespace zqpod {

/// No device, or more than one, answers to what was asked; what() is a message for a person
/// that lists the devices there are.
class DeviceSelectionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The reference for `which`:
/// - a path (it holds a "/" or names something that exists): the volume mounted there, connected
///   or not, so a copy of a device's folder or the built-in sample works as well as an iPod;
/// - otherwise the connected device whose serial number (case ignored) or name matches it;
/// - nothing: the one connected device.
/// Throws DeviceSelectionError when none or several match, and "ZQCoreiPodNotFoundException"
/// for a path where nothing exists.
std::shared_ptr<zq::ZQCoreiPodRef> selectDevice(const std::optional<std::string>& which);

/// The library of selectDevice(which).
std::shared_ptr<zq::ZQCoreiPod> openSelectedDevice(const std::optional<std::string>& which);

} // namespace zqpod
