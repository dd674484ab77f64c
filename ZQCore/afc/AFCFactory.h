#pragma once

#include "ZQCore/afc/MobileDevice.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Export.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace zq {

class AFCDeviceRef;

/// A device that arrived but could not be opened, as the factory posts it with
/// "AFC_DeviceCouldNotBeOpened". `kind` says why: Refused when the device does not trust this
/// computer (it must be paired), Other when the failure was not one of the framework's.
struct ZQ_EXPORT AFCDeviceOpenFailure {
    std::optional<std::string> serialNumber;
    ErrorKind kind = ErrorKind::Other;
    std::string what;  ///< the failure as an exception tells it ("AFCDevice: Device pairing failed")

    /// "AFC device SERIAL could not be opened: WHAT", the line the factory logs.
    std::string description() const;
};

/// What the factory tells as mobile devices come and go. Both calls are optional.
class ZQ_EXPORT AFCFactoryDelegate {
public:
    virtual ~AFCFactoryDelegate() = default;
    virtual void AFCDeviceWasConnected(const std::shared_ptr<AFCDeviceRef>& /*device*/) {}
    virtual void AFCDeviceWasDisconnected(const std::shared_ptr<AFCDeviceRef>& /*device*/) {}
};

/// The process's one subscriber to mobile-device arrivals and departures. Everything it
/// reports comes on the GLib main context that was thread-default when it was made.
///
/// A departure is first broadcast in the process as "AFC_DeviceWasDisconnected" (the object a
/// std::uint32_t, the device id), then told to the delegate. An arrival whose session cannot be
/// opened is logged and broadcast as "AFC_DeviceCouldNotBeOpened" (the object an
/// AFCDeviceOpenFailure), so that a program can tell its user what to do about it.
class ZQ_EXPORT AFCFactory {
public:
    /// The shared factory, made and subscribed on the first call (on the main-loop thread).
    static const std::shared_ptr<AFCFactory>& factory();

    std::shared_ptr<AFCFactoryDelegate> delegate() const { return delegate_.lock(); }
    void setDelegate(const std::shared_ptr<AFCFactoryDelegate>& delegate) { delegate_ = delegate; }

    /// One platform event: message 1 is an arrival, 2 a departure; others are ignored.
    void notify(const AMDeviceNotification& notification);

    /// Runs the main context until every device the transport lists now has been reported
    /// (and handled by the delegate), or until `timeout`. A command-line program that wants
    /// the devices present at start-up calls this once; an application with a main loop lets
    /// them arrive. Answers whether all were reported.
    bool waitForAttachedDevices(std::chrono::milliseconds timeout);

    ~AFCFactory();

private:
    AFCFactory() = default;

    std::weak_ptr<AFCFactoryDelegate> delegate_;
    std::shared_ptr<MobileDevicePlatform> platform_;
    std::size_t reported_ = 0;  // devices attached now, as reported
};

} // namespace zq
