#pragma once

#include "ZQCore/afc/AFCInterface.h"
#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Export.h"
#include "ZQCore/foundation/File.h"
#include "ZQCore/foundation/NotificationCenter.h"
#include "ZQCore/foundation/Range.h"

#include <cstdint>
#include <functional>
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
/// on it: whole and ranged reads and writes in chunks of 262144 bytes, streaming copies in
/// pieces of up to kCopyPieceSize, listings, existence.
///
/// Every failure to open the session throws "AFCDevice" with a reason that names the step
/// ("Device pairing failed", "AMDeviceConnect failed with error <n>", ...); nothing is undone
/// before it is thrown. Its kind is Refused when the device does not trust this computer (no
/// pairing, a pairing it rejects, no session granted), NotAnswering when the device's lockdown
/// service or usbmuxd stayed silent, Cancelled when it was stopped, Other for the rest. A
/// session listens for "AFC_DeviceWasDisconnected" and passes on to its delegate only the
/// departure of its own device.
class ZQ_EXPORT AFCDevice : public std::enable_shared_from_this<AFCDevice> {
public:
    static constexpr std::uint32_t kChunkSize = 262144;
    /// The first request of a streaming copy: as large as libimobiledevice's own tools ask
    /// for, since a copy to a file keeps one piece in memory and pays a round trip per piece.
    static constexpr std::uint32_t kCopyPieceSize = 1u << 20;

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
    /// The conduit for a new request: after a piece of work was cancelled in the middle of a
    /// request, a new one from the session (when the calling thread is not cancelled itself).
    /// Every request made outside this class goes through it.
    const std::shared_ptr<AFCInterface>& liveInterface()
    {
        reopenIfCancelled();
        return deviceInterface_;
    }
    /// After a request on liveInterface() came back empty: throws as the reads do when the
    /// device has gone, stopped answering or the work was cancelled, so that none of these is
    /// taken for a missing file. Returns when the device simply said no.
    void raiseIfGone(const std::string& path) const
    {
        if (hasGone())
            raiseFailure(path, 0);
    }

    // ---- files ----
    // A read that fails is an error, never a short file: the reads below throw a zq::Exception
    // that names the device and the failure: "AFCDeviceDeparted" (it was disconnected; kind
    // DeviceGone), "AFCDeviceNotAnswering" (no answer within requestTimeout(); NotAnswering),
    // "AFCDeviceCancelled" (cancelDeviceRequests, or the CancellationToken of the calling
    // thread's scope; Cancelled; the next call that is not cancelled opens the file service
    // again) or "AFCDeviceReadError" (the device could not read the file; NotFound, Refused or
    // Other as the device said).
    // A device that has gone also throws from the existence tests, rather than answering that
    // the file is missing.

    /// The whole file; no value when no regular file is there.
    std::optional<Data> contentsOfFileAtPath(const std::string& path);
    /// Up to `range.length` bytes from `range.location` (what exists of them); no value when no
    /// regular file is there.
    std::optional<Data> chunkOfFileAtPath(const std::string& path, Range range);
    /// Streams the whole file into `destination` in pieces of kCopyPieceSize, one file opened once,
    /// in constant memory. ENOENT when no regular file is there, a write's errno when the
    /// destination fails; `progress` may stop the copy.
    FileCopyResult copyFileAtPath(const std::string& path, int destination, const FileCopyProgress& progress = {});
    /// "the device "NAME" (serial SERIAL)", for messages.
    std::string describe() const;
    /// True when the file was written and closed; false when its folder does not exist.
    bool createFileAtPath(const std::string& path, const Data& data);
    /// True when a regular file was removed; folders are left alone.
    bool deleteFileAtPath(const std::string& path);
    /// Names of the regular files / sub-folders of a folder, in the device's order. Throws
    /// (empty name and reason, the kind saying why) when the folder cannot be listed.
    std::vector<std::string> listOfFilesAtPath(const std::string& path);
    std::vector<std::string> listOfFoldersAtPath(const std::string& path);
    /// True for a regular file (folders answer false).
    bool fileExistsAtPath(const std::string& path);

    /// Where the reads put their pieces (defined with them).
    class PieceSink;

private:
    AFCDevice() = default;

    [[noreturn]] void raiseFailure(const std::string& path, std::uint64_t offset) const;
    /// `kind` is what a failure other than a silence or a cancellation counts as.
    [[noreturn]] static void raiseSessionFailure(const std::shared_ptr<AFCDeviceRef>& reference, const char* operation,
                                                 int error, ErrorKind kind = ErrorKind::Other);
    static std::string describe(const std::shared_ptr<AFCDeviceRef>& reference);
    bool hasGone() const;
    void reopenIfCancelled();
    std::optional<std::uint64_t> regularFile(const std::string& path);
    std::uint64_t openForReading(const std::string& path);
    /// Reads up to `length` bytes from `location` to the end of the file, at most `pieceSize` per
    /// request, each piece straight into the room `sink` gives.
    FileCopyResult readFile(const std::string& path, std::uint64_t location, std::uint64_t length, std::uint32_t pieceSize,
                            PieceSink& sink, const FileCopyProgress& progress = {});

    std::shared_ptr<AFCInterface> deviceInterface_;
    std::shared_ptr<AFCDeviceRef> device_;
    std::weak_ptr<AFCDeviceDelegate> delegate_;
    std::optional<NotificationCenter::Token> observer_;
};

} // namespace zq
