#pragma once

// A handle on the zq-device-sim process: a private usbmuxd with simulated iPhones behind it.
// Tests start one, point the mobile-device client library at it (USBMUXD_SOCKET_ADDRESS), and
// attach, detach and restart on command; the client library then meets the simulated devices
// exactly as it would meet real ones behind the system's usbmuxd.

#include <optional>
#include <string>
#include <sys/types.h>

namespace zq::test {

/// One simulated device. `root` is a local folder standing for the device's file system
/// (what AFC sees as "/").
struct SimulatedDeviceSpec {
    std::string udid;
    std::string root;
    std::string deviceName = "Simulated iPhone";
    std::string productType = "iPhone12,1";
    std::string serialNumber = "F2LZK0ABCDEF";
    std::string deviceClass = "iPhone";
    bool paired = true;  ///< false: the device does not trust this computer and refuses sessions
    /// Injected faults, as zq-device-sim's attach keys ("readError=PATH@OFFSET",
    /// "departAfter=BYTES", "freezeAfter=BYTES"), each word already quoted where needed.
    std::string faults;
};

class SimulatedUsbmuxd {
public:
    enum class Listen { Unix, Tcp };

    /// Starts zq-device-sim (the one built beside the tests; ZQ_DEVICE_SIM in the environment
    /// overrides the path) and waits until it accepts clients. Throws std::runtime_error when
    /// it cannot be started. Sets SIGPIPE to be ignored in this process: the client library
    /// writes to connections that a detach has closed.
    explicit SimulatedUsbmuxd(Listen listen = Listen::Unix);
    /// Asks the simulator to quit and reaps it (killing it if it does not go in time).
    ~SimulatedUsbmuxd();
    SimulatedUsbmuxd(const SimulatedUsbmuxd&) = delete;
    SimulatedUsbmuxd& operator=(const SimulatedUsbmuxd&) = delete;

    /// The value for USBMUXD_SOCKET_ADDRESS: "UNIX:/path" or "127.0.0.1:port".
    const std::string& socketAddress() const { return address_; }
    /// Sets USBMUXD_SOCKET_ADDRESS for this process; the client reads it at every connect.
    /// The destructor puts back the value it had before.
    void exportAddress() const;

    /// The commands; each throws std::runtime_error with the simulator's answer on failure.
    void attach(const SimulatedDeviceSpec& device);
    void detach(const std::string& udid);
    /// Drops every client connection, as a restarting usbmuxd does; keeps listening.
    void restart();
    /// Reads requests and answers none from now on, as a stuck usbmuxd; or answers again.
    void hang(bool hung);

private:
    void shutdown();
    std::string command(const std::string& line);
    std::string readLine(int timeoutMilliseconds);

    pid_t pid_ = -1;
    int toSimulator_ = -1;
    int fromSimulator_ = -1;
    std::string pending_;  // bytes read past the last answer line
    std::string folder_;   // private folder for the UNIX socket
    std::string address_;
    mutable bool exported_ = false;
    mutable std::optional<std::string> previousAddress_;
};

} // namespace zq::test
