#pragma once

#include <iosfwd>
#include <memory>
#include <string>

namespace zq {
class DeviceModel;
class ZQCoreiPod;
}

namespace zqpod {

/// The library for a person: device, counts, each playlist in the framework's own words.
void printLibraryText(std::ostream& out, const zq::ZQCoreiPod& library);

/// A device's model for a person: "iPod classic (6th generation), 80 GB, silver (MB029)", the
/// family alone when that is all that is known, "unknown (MZ999)" for a number no table knows,
/// "" when nothing is known.
std::string describeModel(const zq::DeviceModel& model);

/// The library for programs (format described in the README; keep it stable, extend only).
void printLibraryJSON(std::ostream& out, const zq::ZQCoreiPod& library);

} // namespace zqpod
