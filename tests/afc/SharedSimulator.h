#pragma once
// The one simulated usbmuxd of the mobile-device test program, started in main() before the
// framework subscribes to device events (it subscribes once per process). It listens on TCP,
// the one kind of address the client library reconnects to after usbmuxd restarts.

#include "tests/support/SimulatedDevice.h"

#include <chrono>
#include <functional>

namespace zq::test {

SimulatedUsbmuxd& sharedSimulator();

/// Runs the default main context (where the framework delivers device events) until `done`
/// answers true or `timeout` passes; answers `done()`.
bool runMainLoopUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout = std::chrono::seconds(10));

} // namespace zq::test
