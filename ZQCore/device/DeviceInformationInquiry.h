#pragma once

// The SCSI side of a disk-mode device: it describes itself (model, serial number, capabilities)
// in an XML property list handed out through vendor-specific INQUIRY vital-product-data pages
// of its mass-storage interface. Page 0xC0 lists the pages that hold the text; their payloads
// joined in list order are the XML, which the library object keeps as SysInfoExtended.
//
// Commands go through a small transport interface so that the walk is the same for the real
// device (the Linux SCSI generic pass-through, SG_IO, on the disk's block node) and for a
// scripted one in tests. Nothing here raises: every failure is a line on standard error that
// begins "xxxxxxxx " and a shorter or empty text.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zq {

/// The status of a finished SCSI task: the SCSI status byte (GOOD is 0; only GOOD counts as
/// success), or one of the transport's own codes when no status came back.
using SCSITaskStatus = std::uint32_t;
inline constexpr SCSITaskStatus kSCSITaskStatus_GOOD = 0x00;
inline constexpr SCSITaskStatus kSCSITaskStatus_TaskTimeoutOccurred = 0x01000000;
inline constexpr SCSITaskStatus kSCSITaskStatus_DeliveryFailure = 0x05000000;
inline constexpr SCSITaskStatus kSCSITaskStatus_No_Status = 0xFFFFFFFF;

enum class SCSIDataTransferDirection : std::uint8_t { NoDataTransfer = 0, FromInitiatorToTarget = 1, FromTargetToInitiator = 2 };

using SCSISenseData = std::array<std::uint8_t, 32>;

/// One SCSI command on its way to a device: its command block, data buffer and time-out are
/// set, then it runs synchronously. Every operation answers 0 on success or an error code.
class SCSITask {
public:
    virtual ~SCSITask() = default;
    virtual std::int32_t setCommandDescriptorBlock(std::span<const std::uint8_t> cdb) = 0;
    /// One buffer; `transferCount` bytes move in `direction`. The buffer must outlive the task.
    virtual std::int32_t setScatterGatherEntries(std::span<std::uint8_t> buffer, std::uint64_t transferCount,
                                                 SCSIDataTransferDirection direction) = 0;
    virtual std::int32_t setTimeoutDuration(std::uint32_t milliseconds) = 0;
    /// Runs the command and waits for it. `taskStatus` and `realizedTransferCount` are written
    /// only when an answer came back.
    virtual std::int32_t executeTaskSync(SCSISenseData& sense, SCSITaskStatus& taskStatus,
                                         std::uint64_t& realizedTransferCount) = 0;
};

/// A SCSI device that takes commands from this process. Exclusive access keeps other
/// cooperating users off the device for the length of a walk; on Linux it is the BSD lock on
/// the disk's block node, which udev honours too.
class SCSITaskDeviceInterface {
public:
    virtual ~SCSITaskDeviceInterface() = default;
    virtual std::int32_t obtainExclusiveAccess() = 0;
    virtual std::int32_t releaseExclusiveAccess() = 0;
    /// A new task; nullptr when none can be made.
    virtual std::unique_ptr<SCSITask> createSCSITask() = 0;
};

/// The part of a device that answers the information inquiry: on Linux, the USB device with
/// Apple's vendor id above the volume's block device, and the whole-disk node under it that the
/// commands go to (SG_IO is refused on a partition's node).
struct DeviceInformationNub {
    std::string usbDevicePath;   ///< sysfs path of the USB device
    std::string scsiDeviceNode;  ///< "/dev/sdb"
};

/// The answer buffer of one inquiry: byte 1 the page code, byte 3 the payload length, the
/// payload from byte 4. Of a length byte only what fits the buffer (251 bytes) is used.
inline constexpr std::size_t kVPDBufferSize = 255;
using VPDBuffer = std::array<std::uint8_t, kVPDBufferSize>;

/// The page that lists the pages holding the device's XML.
inline constexpr std::uint8_t kiPodXMLPageListCode = 0xC0;

/// The SCSI pass-through (SG_IO) of a disk's block node. When the node cannot be opened (it is
/// missing, or permission is denied: not root and not in the disk group) prints
/// "xxxxxxxx Couldn't create a plugin interface for the io_service_t. (0x%08x)\n" with the
/// error number; when it does not take SCSI commands (not a SCSI disk),
/// "xxxxxxxx Couldn't create SCSI device interface. (%ld)\n". Either way, nullptr. The node
/// name must not be empty.
std::unique_ptr<SCSITaskDeviceInterface> CreateDeviceInterfaceUsingSTUC(const std::string& deviceNode);

/// One INQUIRY with EVPD for `pageCode` into `buffer`, which is zeroed first: the 6-byte command
/// block 12 01 <page> 00 FF 00, 255 bytes from the device, a 10-second time-out. True exactly
/// when the task finished with status GOOD; a step that fails is reported and the later steps
/// still run. `interface` must not be null.
bool ExecuteVPDInquiryUsingSTUC(SCSITaskDeviceInterface* interface, std::uint8_t pageCode, VPDBuffer& buffer);

/// The page walk, under exclusive access: asks page 0xC0 and, when its answer really is page
/// 0xC0, every page it lists in order, appending each payload byte as one character (bytes from
/// 0x80 up become the characters U+0080 to U+00FF, so the text is UTF-8). The first page that
/// fails ends the walk with the text so far. Without exclusive access nothing is asked and the
/// text is empty.
std::string readiPodXMLThroughInterface(SCSITaskDeviceInterface& interface);

/// The block device (its sysfs path) of the file system that holds `path`: the device of the
/// file itself, or for a file system on an anonymous device (btrfs) the one its mount entry
/// names. No value when the path is not on a block device.
std::optional<std::string> blockDeviceForPath(const std::string& path);

/// The kernel name ("sdb1") of a block device given by its sysfs path.
std::optional<std::string> kernelNameOfBlockDevice(const std::string& sysPath);

/// Walks from a block device towards its parents to the first USB device of Apple's vendor id
/// (05ac). No value when there is none, or when the disk has no device node.
std::optional<DeviceInformationNub> informationNubAboveBlockDevice(const std::string& sysPath);

/// Every disk whose USB device is Apple's, found through udev without a mounted volume: a way
/// to enumerate devices by their SCSI side. The framework itself does not call it.
std::vector<DeviceInformationNub> FindiPodsUsingSTUC();

} // namespace zq
