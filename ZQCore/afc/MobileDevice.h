#pragma once

#include "ZQCore/foundation/Export.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zq {

// The mobile-device services the AFC classes stand on: device arrival and departure, the
// lockdown session, and the file conduit ("com.apple.afc") of a session. Everything above this
// header (AFCFactory, AFCDevice, AFCInterface) speaks only these calls, each answering 0 on
// success or an error number, so that the session and file logic reads the same whichever
// transport is underneath: libimobiledevice on Linux, or a test's scripted device.

/// A directory listing as the conduit hands it out: names, read one at a time.
struct AFCDirectory {
    std::vector<std::string> names;
    std::size_t next = 0;

    /// The next entry name; no value at the end.
    std::optional<std::string> read()
    {
        if (next >= names.size())
            return std::nullopt;
        return names[next++];
    }
};

/// Key-value pairs of a file's or the device's information, read one pair at a time.
struct AFCKeyValue {
    std::vector<std::pair<std::string, std::string>> pairs;
    std::size_t next = 0;

    /// The next pair; no value at the end.
    std::optional<std::pair<std::string, std::string>> read()
    {
        if (next >= pairs.size())
            return std::nullopt;
        return pairs[next++];
    }
};

/// Results of the conduit's calls beside the service's own error numbers (which are positive):
/// the connection to the device broke (it left, or its cable did), the device did not answer
/// within requestTimeout(), or cancelDeviceRequests() stopped the request. After the first of
/// these the conduit is dead: every later call answers the same at once, so a device that has
/// gone costs one timeout, not one per file.
constexpr int kAFCDeviceDeparted = -1001;
constexpr int kAFCDeviceNotAnswering = -1002;
constexpr int kAFCRequestCancelled = -1003;
/// The USB daemon (usbmuxd), through which every device is reached, did not answer within
/// requestTimeout(); the devices behind it cannot be known.
constexpr int kAFCDaemonNotAnswering = -1004;
/// Two of the service's own error numbers, which name what the device found: no such file or
/// folder, and a path it will not serve.
constexpr int kAFCObjectNotFound = 8;
constexpr int kAFCPermissionDenied = 10;

/// How long one request to a mobile device, to its lockdown service or to the USB daemon that
/// reaches it may take before that part counts as not answering.
/// From the environment variable ZQ_DEVICE_TIMEOUT (seconds, fractions allowed) when set to a
/// positive number, else 10 seconds; setRequestTimeout replaces it for the process.
ZQ_EXPORT std::chrono::milliseconds requestTimeout();
ZQ_EXPORT void setRequestTimeout(std::chrono::milliseconds timeout);
/// requestTimeout() as messages give it: "10 s", "2.5 s".
ZQ_EXPORT std::string requestTimeoutText();
/// Makes every request to a mobile device that is in progress, or starts later, give up at once
/// with kAFCRequestCancelled. Only sets a flag, so a signal handler (Ctrl-C) may call it. It is
/// for a process that is about to end; an application that goes on stops one piece of work with
/// a CancellationToken instead.
ZQ_EXPORT void cancelDeviceRequests() noexcept;

/// Stops the device requests of one piece of work (a library load, a copy) when another thread
/// asks, leaving every other request of the process alone. The work runs inside a
/// CancellationScope of the token; cancel() may be called from any thread. A read that was
/// cut short throws "AFCDeviceCancelled" (temporary copies are removed on the way out); the
/// device's session opens its file service again for the next piece of work.
class ZQ_EXPORT CancellationToken {
public:
    void cancel() noexcept { cancelled_ = true; }
    bool isCancelled() const noexcept { return cancelled_; }

private:
    std::atomic<bool> cancelled_{false};
};

/// While it lives, the device requests that this thread makes also give up, with
/// kAFCRequestCancelled, once `token` is cancelled (at once, also in the middle of a wait).
/// Scopes nest; the innermost one counts.
class ZQ_EXPORT CancellationScope {
public:
    explicit CancellationScope(std::shared_ptr<const CancellationToken> token);
    ~CancellationScope();
    CancellationScope(const CancellationScope&) = delete;
    CancellationScope& operator=(const CancellationScope&) = delete;

private:
    std::shared_ptr<const CancellationToken> previous_;
};

/// Whether this thread's device requests are to give up now: cancelDeviceRequests() was called,
/// or the token of the innermost CancellationScope is cancelled.
ZQ_EXPORT bool deviceRequestsCancelled() noexcept;
/// The token of this thread's innermost CancellationScope (null outside any).
ZQ_EXPORT std::shared_ptr<const CancellationToken> currentCancellationToken();

/// One open file conduit of a device session. Not thread-safe: one thread at a time.
class ZQ_EXPORT AFCConnection {
public:
    virtual ~AFCConnection() = default;

    virtual int removePath(const std::string& path) = 0;
    virtual int renamePath(const std::string& from, const std::string& to) = 0;
    virtual int directoryCreate(const std::string& path) = 0;
    /// Opens a directory for reading its entry names (".", ".." included, as the device gives them).
    virtual int directoryOpen(const std::string& path, AFCDirectory& directory) = 0;
    virtual int fileInfoOpen(const std::string& path, AFCKeyValue& information) = 0;
    virtual int deviceInfoOpen(AFCKeyValue& information) = 0;
    /// Opens a file; `mode` 2 reads, 3 creates or truncates for writing. The handle is never 0.
    virtual int fileRefOpen(const std::string& path, std::uint64_t mode, std::uint64_t& file) = 0;
    /// Positions the file; whence 0 counts from the start.
    virtual int fileRefSeek(std::uint64_t file, std::int64_t offset, int whence) = 0;
    /// Reads up to `count` bytes into `buffer`; `count` becomes the number read (0 at the end).
    virtual int fileRefRead(std::uint64_t file, std::uint8_t* buffer, std::uint32_t& count) = 0;
    virtual int fileRefWrite(std::uint64_t file, const std::uint8_t* bytes, std::uint32_t count) = 0;
    virtual int fileRefSetFileSize(std::uint64_t file, std::uint64_t size) = 0;
    virtual int fileRefClose(std::uint64_t file) = 0;
};

/// A service started in a device session; the file conduit is opened on it.
class ZQ_EXPORT AMService {
public:
    virtual ~AMService() = default;
    virtual int afcConnectionOpen(std::shared_ptr<AFCConnection>& connection) = 0;
};

/// The platform's record of one attached device. The same record stands for the device from
/// its arrival to its departure, so the departure names the device that arrived.
class ZQ_EXPORT AMDevice {
public:
    virtual ~AMDevice() = default;

    /// The transport's number for this attachment (usbmuxd's device handle).
    virtual std::uint32_t deviceID() const = 0;
    virtual std::uint32_t productID() const = 0;
    /// A lockdown value ("SerialNumber", "DeviceName", ...) of the default domain, or of
    /// `domain`; no value when the device does not answer it.
    virtual std::optional<std::string> copyValue(const std::optional<std::string>& domain, const std::string& key) = 0;

    virtual int connect() = 0;
    virtual bool isPaired() = 0;
    virtual int validatePairing() = 0;
    virtual int startSession() = 0;
    /// Starts a service of the session; on success `service` is set.
    virtual int startService(const std::string& name, std::shared_ptr<AMService>& service) = 0;
};

/// A device arrival (message 1), departure (2) or another event of the transport (other values).
struct AMDeviceNotification {
    std::shared_ptr<AMDevice> device;
    std::int32_t message = 0;
};

/// The transport's device events.
class ZQ_EXPORT MobileDevicePlatform {
public:
    using Callback = std::function<void(const AMDeviceNotification&)>;

    virtual ~MobileDevicePlatform() = default;

    /// Reports every device attached now and every later arrival and departure to `callback`,
    /// always on the GLib main context that was thread-default at this call (never from within
    /// this call). 0 on success, else an error number.
    virtual int notificationSubscribe(Callback callback) = 0;
    /// The number of devices the transport lists at this moment (0 when it cannot be asked).
    virtual std::size_t attachedDeviceCount() = 0;
    /// Why devices cannot be known now: a sentence naming the part of the transport that did
    /// not answer ("usbmuxd, the service that reaches phones over USB, did not answer within
    /// 3 s"); no value while it answers. Once the daemon has failed to answer, the process asks
    /// it nothing more, so a stuck daemon costs one timeout, not one per request.
    virtual std::optional<std::string> notAnswering() const { return std::nullopt; }

    /// The process's platform: libimobiledevice through usbmuxd unless one was set before.
    static std::shared_ptr<MobileDevicePlatform> shared();
    /// Replaces the platform used by devices found from now on (tests script their own).
    static void setShared(std::shared_ptr<MobileDevicePlatform> platform);
};

} // namespace zq
