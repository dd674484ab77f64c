#pragma once

#include "ZQCore/afc/AFCInterface.h"
#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Export.h"
#include "ZQCore/foundation/NotificationCenter.h"
#include "ZQCore/foundation/Range.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zq {

class AFCDevice;
class AFCDeviceRef;

/// Told when the session's device departs. Optional.
class ZQ_EXPORT AFCDeviceDelegate {
public:
    virtual ~AFCDeviceDelegate() = default;
    virtual void deviceWasDisconnected(const std::shared_ptr<AFCDevice>& /*device*/) {}
};

/// A session on one mobile device with its file conduit open, and the file operations built
/// on it: whole and ranged reads and writes in chunks of 262144 bytes, listings, existence.
///
/// Every failure to open the session throws "AFCDevice" with a reason that names the step
/// ("Device pairing failed", "AMDeviceConnect failed with error <n>", ...); nothing is undone
/// before it is thrown. A session listens for "AFC_DeviceWasDisconnected" and passes on to its
/// delegate only the departure of its own device.
class ZQ_EXPORT AFCDevice : public std::enable_shared_from_this<AFCDevice> {
public:
    static constexpr std::uint32_t kChunkSize = 262144;

    /// A ready session on the referenced device; nullptr when there is no device to open.
    static std::shared_ptr<AFCDevice> initWithRef(const std::shared_ptr<AFCDeviceRef>& reference);
    ~AFCDevice();
    AFCDevice(const AFCDevice&) = delete;
    AFCDevice& operator=(const AFCDevice&) = delete;

    /// Connects, checks the pairing and starts the session; keeps the reference. True, or throws.
    bool initializeDevice(const std::shared_ptr<AFCDeviceRef>& reference);
    /// Starts the service and opens its conduit; nullptr without a reference, or throws.
    std::shared_ptr<AFCConnection> openDevice(const std::shared_ptr<AFCDeviceRef>& reference, const std::string& service);
    /// Opens a new session on another reference of the device (it returned) and uses its conduit.
    void setDeviceRef(const std::shared_ptr<AFCDeviceRef>& reference);
    /// The "AFC_DeviceWasDisconnected" observer: `deviceID` is the departed device's id.
    void disconnected(std::uint32_t deviceID);

    std::shared_ptr<AFCDeviceDelegate> delegate() const { return delegate_.lock(); }
    void setDelegate(const std::shared_ptr<AFCDeviceDelegate>& delegate) { delegate_ = delegate; }
    const std::shared_ptr<AFCDeviceRef>& device() const { return device_; }
    const std::shared_ptr<AFCInterface>& deviceInterface() const { return deviceInterface_; }

    // ---- files ----
    /// The whole file; empty data when it cannot be opened; no value when no regular file is there.
    std::optional<Data> contentsOfFileAtPath(const std::string& path);
    /// Up to `range.length` bytes from `range.location` (what exists of them); empty data when
    /// the file cannot be opened; no value when no regular file is there.
    std::optional<Data> chunkOfFileAtPath(const std::string& path, Range range);
    /// True when the file was written and closed; false when its folder does not exist.
    bool createFileAtPath(const std::string& path, const Data& data);
    /// True when a regular file was removed; folders are left alone.
    bool deleteFileAtPath(const std::string& path);
    /// Names of the regular files / sub-folders of a folder, in the device's order. Throws
    /// (empty name and reason) when the folder cannot be listed.
    std::vector<std::string> listOfFilesAtPath(const std::string& path);
    std::vector<std::string> listOfFoldersAtPath(const std::string& path);
    /// True for a regular file (folders answer false).
    bool fileExistsAtPath(const std::string& path);

private:
    AFCDevice() = default;

    std::shared_ptr<AFCInterface> deviceInterface_;
    std::shared_ptr<AFCDeviceRef> device_;
    std::weak_ptr<AFCDeviceDelegate> delegate_;
    std::optional<NotificationCenter::Token> observer_;
};

} // namespace zq
