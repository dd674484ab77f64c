#pragma once

#include <cstddef>
#include <iosfwd>

namespace zqpod {

/// Prints the devices connected now, one line each under a heading: name, serial number, model
/// type and mount path; or "No devices connected." Returns the number of devices.
std::size_t printConnectedDevices(std::ostream& out);

/// Prints the devices connected now ("present: ..."), then a line for every device that
/// arrives ("arrived: ...") or departs ("departed: ..."), as the mount events come, until the
/// process is interrupted (SIGINT or SIGTERM). Every line is flushed as it is written.
void watchDevices(std::ostream& out);

} // namespace zqpod
