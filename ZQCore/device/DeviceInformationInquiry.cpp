#include "ZQCore/device/DeviceInformationInquiry.h"

#include <fcntl.h>
#include <gio/gunixmounts.h>
#include <libudev.h>
#include <scsi/sg.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zq {

namespace {

constexpr std::uint8_t kINQUIRY = 0x12;
constexpr std::uint8_t kEVPD = 0x01;
constexpr std::uint32_t kInquiryTimeoutMilliseconds = 10000;
constexpr const char* kAppleVendorID = "05ac";
/// Payload bytes that fit the answer buffer after its 4-byte header.
constexpr std::size_t kMaxPayload = kVPDBufferSize - 4;

/// A broken caller contract: the message an assertion prints, then the process stops.
[[noreturn]] void assertionFailed(const char* expression, const char* function, int line)
{
    std::fprintf(stderr, "Assertion failed: (%s), function %s, file ZQCore/device/DeviceInformationInquiry.cpp, line %d.\n",
                 expression, function, line);
    std::abort();
}

void appendCharacter(std::string& text, std::uint8_t byte)
{
    if (byte < 0x80) {
        text += static_cast<char>(byte);
    } else {
        text += static_cast<char>(0xC0 | (byte >> 6));
        text += static_cast<char>(0x80 | (byte & 0x3F));
    }
}

// ---- the SG_IO pass-through --------------------------------------------------------------------

class SGIOTask final : public SCSITask {
public:
    explicit SGIOTask(int fd) : fd_(fd) {}

    std::int32_t setCommandDescriptorBlock(std::span<const std::uint8_t> cdb) override
    {
        if (cdb.empty() || cdb.size() > cdb_.size())
            return EINVAL;
        std::copy(cdb.begin(), cdb.end(), cdb_.begin());
        cdbLength_ = static_cast<unsigned char>(cdb.size());
        return 0;
    }

    std::int32_t setScatterGatherEntries(std::span<std::uint8_t> buffer, std::uint64_t transferCount,
                                         SCSIDataTransferDirection direction) override
    {
        if (transferCount > buffer.size())
            return EINVAL;
        buffer_ = buffer.data();
        transferCount_ = static_cast<unsigned int>(transferCount);
        direction_ = direction;
        return 0;
    }

    std::int32_t setTimeoutDuration(std::uint32_t milliseconds) override
    {
        timeout_ = milliseconds;
        return 0;
    }

    std::int32_t executeTaskSync(SCSISenseData& sense, SCSITaskStatus& taskStatus,
                                 std::uint64_t& realizedTransferCount) override
    {
        sg_io_hdr_t io {};
        io.interface_id = 'S';
        io.cmdp = cdb_.data();
        io.cmd_len = cdbLength_;
        io.dxferp = buffer_;
        io.dxfer_len = transferCount_;
        switch (direction_) {
        case SCSIDataTransferDirection::FromTargetToInitiator: io.dxfer_direction = SG_DXFER_FROM_DEV; break;
        case SCSIDataTransferDirection::FromInitiatorToTarget: io.dxfer_direction = SG_DXFER_TO_DEV; break;
        case SCSIDataTransferDirection::NoDataTransfer: io.dxfer_direction = SG_DXFER_NONE; break;
        }
        if (!buffer_ || transferCount_ == 0) {
            io.dxferp = nullptr;
            io.dxfer_len = 0;
            io.dxfer_direction = SG_DXFER_NONE;
        }
        io.sbp = sense.data();
        io.mx_sb_len = static_cast<unsigned char>(sense.size());
        io.timeout = timeout_;
        if (::ioctl(fd_, SG_IO, &io) < 0)
            return errno;
        realizedTransferCount = io.dxfer_len - static_cast<unsigned int>(std::max(io.resid, 0));
        if ((io.info & SG_INFO_OK_MASK) == SG_INFO_OK)
            taskStatus = kSCSITaskStatus_GOOD;
        else if (io.host_status == 0x03 /* DID_TIME_OUT */)
            taskStatus = kSCSITaskStatus_TaskTimeoutOccurred;
        else if (io.status != 0)
            taskStatus = io.status;
        else
            taskStatus = kSCSITaskStatus_DeliveryFailure;
        return 0;
    }

private:
    int fd_;
    std::array<unsigned char, 16> cdb_ {};
    unsigned char cdbLength_ = 0;
    std::uint8_t* buffer_ = nullptr;
    unsigned int transferCount_ = 0;
    SCSIDataTransferDirection direction_ = SCSIDataTransferDirection::NoDataTransfer;
    std::uint32_t timeout_ = 0;
};

class SGIODevice final : public SCSITaskDeviceInterface {
public:
    explicit SGIODevice(int fd) : fd_(fd) {}
    ~SGIODevice() override { ::close(fd_); }
    SGIODevice(const SGIODevice&) = delete;
    SGIODevice& operator=(const SGIODevice&) = delete;

    std::int32_t obtainExclusiveAccess() override { return ::flock(fd_, LOCK_EX | LOCK_NB) == 0 ? 0 : errno; }
    std::int32_t releaseExclusiveAccess() override { return ::flock(fd_, LOCK_UN) == 0 ? 0 : errno; }
    std::unique_ptr<SCSITask> createSCSITask() override { return std::make_unique<SGIOTask>(fd_); }

private:
    int fd_;
};

// ---- udev ---------------------------------------------------------------------------------------

struct UdevDeleter {
    void operator()(udev* context) const { udev_unref(context); }
    void operator()(udev_device* device) const { udev_device_unref(device); }
    void operator()(udev_enumerate* enumerate) const { udev_enumerate_unref(enumerate); }
};
using Udev = std::unique_ptr<udev, UdevDeleter>;
using UdevDevice = std::unique_ptr<udev_device, UdevDeleter>;
using UdevEnumerate = std::unique_ptr<udev_enumerate, UdevDeleter>;

bool equals(const char* value, const char* expected) { return value && std::strcmp(value, expected) == 0; }

std::optional<DeviceInformationNub> nubAbove(udev_device* block)
{
    // Commands go to the whole disk; a partition's parent is its disk (the parent is owned by
    // the child and must not be released).
    udev_device* disk = block;
    if (equals(udev_device_get_devtype(block), "partition"))
        disk = udev_device_get_parent_with_subsystem_devtype(block, "block", "disk");
    const char* node = disk ? udev_device_get_devnode(disk) : nullptr;
    if (!node)
        return std::nullopt;
    for (udev_device* parent = udev_device_get_parent(block); parent; parent = udev_device_get_parent(parent)) {
        if (equals(udev_device_get_subsystem(parent), "usb") && equals(udev_device_get_devtype(parent), "usb_device") &&
            equals(udev_device_get_sysattr_value(parent, "idVendor"), kAppleVendorID))
            return DeviceInformationNub{udev_device_get_syspath(parent), node};
    }
    return std::nullopt;
}

} // namespace

std::unique_ptr<SCSITaskDeviceInterface> CreateDeviceInterfaceUsingSTUC(const std::string& deviceNode)
{
    if (deviceNode.empty())
        assertionFailed("scsiDevice != IO_OBJECT_NULL", __func__, __LINE__);
    // Read access is enough: INQUIRY is among the commands the kernel lets a reader send.
    const int fd = ::open(deviceNode.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        std::fprintf(stderr, "xxxxxxxx Couldn't create a plugin interface for the io_service_t. (0x%08x)\n",
                     static_cast<unsigned>(errno));
        return nullptr;
    }
    // Only a device that speaks SCSI answers the pass-through's version (a USB disk does; a
    // loop device, a virtio disk or a character device does not).
    int version = 0;
    long error = 0;
    if (::ioctl(fd, SG_GET_VERSION_NUM, &version) < 0)
        error = errno;
    else if (version < 30000)
        error = EINVAL;
    if (error != 0) {
        std::fprintf(stderr, "xxxxxxxx Couldn't create SCSI device interface. (%ld)\n", error);
        ::close(fd);
        return nullptr;
    }
    return std::make_unique<SGIODevice>(fd);
}

bool ExecuteVPDInquiryUsingSTUC(SCSITaskDeviceInterface* interface, std::uint8_t pageCode, VPDBuffer& buffer)
{
    if (!interface)
        assertionFailed("interface != NULL", __func__, __LINE__);
    auto task = interface->createSCSITask();
    if (!task) {
        std::fprintf(stderr, "xxxxxxxx CreateSCSITask returned NULL.\n");
        return false;
    }
    buffer.fill(0);

    std::array<std::uint8_t, 16> cdb {};
    cdb[0] = kINQUIRY;
    cdb[1] = kEVPD;
    cdb[2] = pageCode;
    cdb[3] = 0x00;
    cdb[4] = static_cast<std::uint8_t>(kVPDBufferSize);  // allocation length
    cdb[5] = 0x00;                                       // control
    if (const std::int32_t error = task->setCommandDescriptorBlock(std::span(cdb).first(6)))
        std::fprintf(stderr, "xxxxxxxx Error setting CDB. (0x%08x)\n", static_cast<unsigned>(error));
    if (const std::int32_t error =
            task->setScatterGatherEntries(buffer, kVPDBufferSize, SCSIDataTransferDirection::FromTargetToInitiator))
        std::fprintf(stderr, "xxxxxxxx Error setting scatter-gather entries. (0x%08x)\n", static_cast<unsigned>(error));
    if (const std::int32_t error = task->setTimeoutDuration(kInquiryTimeoutMilliseconds))
        std::fprintf(stderr, "xxxxxxxx Error setting timeout. (0x%08x)\n", static_cast<unsigned>(error));

    SCSISenseData sense {};
    SCSITaskStatus status = kSCSITaskStatus_No_Status;
    std::uint64_t transferred = 0;
    if (const std::int32_t error = task->executeTaskSync(sense, status, transferred))
        std::fprintf(stderr, "xxxxxxxx Error executing task. (0x%08x)\n", static_cast<unsigned>(error));
    return status == kSCSITaskStatus_GOOD;
}

std::string readiPodXMLThroughInterface(SCSITaskDeviceInterface& interface)
{
    std::string text;
    if (const std::int32_t error = interface.obtainExclusiveAccess()) {
        std::fprintf(stderr, "xxxxxxxx ObtainExclusiveAccess failed. (0x%08x)\n", static_cast<unsigned>(error));
        return text;
    }
    VPDBuffer pageList {};
    if (ExecuteVPDInquiryUsingSTUC(&interface, kiPodXMLPageListCode, pageList) && pageList[1] == kiPodXMLPageListCode) {
        // The length bytes come from the device: only what the buffer holds is used.
        const std::size_t pageCount = std::min<std::size_t>(pageList[3], kMaxPayload);
        VPDBuffer page {};
        for (std::size_t i = 0; i < pageCount; ++i) {
            if (!ExecuteVPDInquiryUsingSTUC(&interface, pageList[4 + i], page))
                break;
            const std::size_t length = std::min<std::size_t>(page[3], kMaxPayload);
            for (std::size_t j = 0; j < length; ++j)
                appendCharacter(text, page[4 + j]);
        }
    }
    if (const std::int32_t error = interface.releaseExclusiveAccess())
        std::fprintf(stderr, "xxxxxxxx ReleaseExclusiveAccess failed. (0x%08x)\n", static_cast<unsigned>(error));
    return text;
}

std::optional<std::string> blockDeviceForPath(const std::string& path)
{
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return std::nullopt;
    Udev context(udev_new());
    if (!context)
        return std::nullopt;
    UdevDevice device(udev_device_new_from_devnum(context.get(), 'b', info.st_dev));
    if (!device) {
        // File systems such as btrfs give their files an anonymous device number; the mount
        // entry still names the block device.
        if (GUnixMountEntry* entry = g_unix_mount_for(path.c_str(), nullptr)) {
            struct stat node {};
            const char* devicePath = g_unix_mount_get_device_path(entry);
            if (devicePath && ::stat(devicePath, &node) == 0 && S_ISBLK(node.st_mode))
                device.reset(udev_device_new_from_devnum(context.get(), 'b', node.st_rdev));
            g_unix_mount_free(entry);
        }
    }
    if (!device)
        return std::nullopt;
    return std::string(udev_device_get_syspath(device.get()));
}

std::optional<std::string> kernelNameOfBlockDevice(const std::string& sysPath)
{
    Udev context(udev_new());
    if (!context)
        return std::nullopt;
    UdevDevice device(udev_device_new_from_syspath(context.get(), sysPath.c_str()));
    if (!device || !udev_device_get_sysname(device.get()))
        return std::nullopt;
    return std::string(udev_device_get_sysname(device.get()));
}

std::optional<DeviceInformationNub> informationNubAboveBlockDevice(const std::string& sysPath)
{
    Udev context(udev_new());
    if (!context)
        return std::nullopt;
    UdevDevice device(udev_device_new_from_syspath(context.get(), sysPath.c_str()));
    if (!device || !equals(udev_device_get_subsystem(device.get()), "block"))
        return std::nullopt;
    return nubAbove(device.get());
}

std::vector<DeviceInformationNub> FindiPodsUsingSTUC()
{
    std::vector<DeviceInformationNub> nubs;
    Udev context(udev_new());
    if (!context)
        return nubs;
    UdevEnumerate enumerate(udev_enumerate_new(context.get()));
    if (!enumerate)
        return nubs;
    udev_enumerate_add_match_subsystem(enumerate.get(), "block");
    udev_enumerate_add_match_property(enumerate.get(), "DEVTYPE", "disk");
    udev_enumerate_scan_devices(enumerate.get());
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumerate.get()))
    {
        UdevDevice device(udev_device_new_from_syspath(context.get(), udev_list_entry_get_name(entry)));
        if (device)
            if (auto nub = nubAbove(device.get()))
                nubs.push_back(std::move(*nub));
    }
    return nubs;
}

} // namespace zq
