#pragma once

// A stand-in for usbmuxd with simulated mobile devices behind it, for tests that drive the real
// libimobiledevice client end to end. One process listens on a socket of its own; every client
// connection is served by a thread of its own, first speaking the usbmuxd protocol and, after a
// successful Connect, the device's lockdown or AFC protocol on the same socket, exactly as the
// real daemon hands a connection over to the device.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace zq::sim {

/// One simulated device. Fixed at attach, except the ports of the services started on it.
struct Device {
    std::uint32_t deviceID = 0;
    std::string udid;
    std::string root;  ///< the local folder that stands for the device's file system
    std::string name = "Simulated iPhone";
    std::string productType = "iPhone12,1";
    std::string productVersion = "16.7.2";
    std::string serialNumber = "F2LZK0ABCDEF";
    std::string deviceClass = "iPhone";
    std::string modelNumber = "MWLT2";
    bool paired = true;

    /// A fault that strikes when a read of one file reaches a byte; what comes before it is
    /// served as usual.
    struct Fault {
        /// an I/O error; the device leaves; it stops answering; nothing (only the read before
        /// it comes back short, as a device's reads may); this one connection stops answering
        /// (a read that takes for ever, while new connections are served; it strikes once)
        enum Kind { ReadError, Depart, Freeze, ShortRead, Stall } kind;
        std::string path;
        std::uint64_t offset = 0;
        /// Set once a fault that strikes once has struck (shared by the device's connections).
        std::shared_ptr<std::atomic<bool>> spent = std::make_shared<std::atomic<bool>>(false);
    };
    std::vector<Fault> faults;     ///< for trying how clients meet a failing device
    std::atomic<bool> frozen{false};
    bool lockdownSilent = false;   ///< its lockdown service reads requests and answers none
    std::function<void()> depart;  ///< detaches the device (set by whoever attaches it)

    std::mutex servicesMutex;
    std::set<std::uint16_t> servicePorts;  ///< ports handed out by StartService, open for Connect
    std::uint16_t nextServicePort = 49152;
};

class Simulator {
public:
    /// `address` is "UNIX:/path" or "host:port" (port 0 picks a free one).
    explicit Simulator(const std::string& address);
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    /// The address clients use (USBMUXD_SOCKET_ADDRESS), with the real port for TCP.
    const std::string& address() const { return address_; }

    /// Starts accepting clients on a thread of its own.
    void start();

    /// Control commands; an empty string means success, anything else is the error text.
    std::string attach(std::shared_ptr<Device> device);
    std::string detach(const std::string& udid);
    void restart();
    /// Requests are read and never answered from now on (connections are still taken), as by
    /// a usbmuxd that hangs; or answered again.
    void hang(bool hung) { hung_ = hung; }
    /// Drops every connection and stops accepting; waits (briefly) for the client threads.
    void stop();

    // ---- used by the connection threads ----
    std::shared_ptr<Device> deviceWithID(std::uint32_t deviceID);
    std::string pairRecord(const std::string& udid);  ///< empty when the host holds none
    void savePairRecord(const std::string& udid, const std::string& record);
    void deletePairRecord(const std::string& udid);
    const std::string& systemBUID() const { return systemBUID_; }
    const std::string& hostID() const { return hostID_; }

private:
    struct Connection;

    void acceptLoop();
    void serve(std::shared_ptr<Connection> connection);
    bool serveUsbmux(Connection& connection);
    void broadcast(const std::string& xml);

    std::string address_;
    std::string unixPath_;
    int listenFD_ = -1;
    std::string systemBUID_;
    std::string hostID_;

    std::mutex mutex_;  // guards everything below
    std::map<std::string, std::shared_ptr<Device>> devices_;  // by UDID
    std::map<std::string, std::string> savedPairRecords_;     // by UDID, from SavePairRecord
    std::set<std::string> deletedPairRecords_;
    std::map<std::uint64_t, std::shared_ptr<Connection>> connections_;
    std::uint64_t nextConnectionID_ = 1;
    std::uint32_t nextDeviceID_ = 1;
    bool stopping_ = false;
    std::size_t runningThreads_ = 0;
    std::condition_variable threadsDone_;

    std::atomic<bool> hung_{false};
    std::atomic<bool> acceptRunning_{false};
    std::mutex acceptMutex_;
    std::condition_variable acceptDone_;
};

/// Serves lockdown requests on a connection handed over by usbmuxd until the client leaves.
void serveLockdown(int fd, Device& device);
/// Serves AFC requests from the device's root folder until the client leaves.
void serveAFC(int fd, Device& device);

} // namespace zq::sim
