#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zq {

/// One entry of the system's mount table.
struct MountedVolume {
    std::string mountPath;   ///< where the file system is mounted
    std::string devicePath;  ///< what is mounted there ("/dev/sdb1", "tmpfs", "server:/share")
    std::string fsType;      ///< "vfat", "hfsplus", "tmpfs"...
    bool blockDevice = false;  ///< devicePath names a block special file
};

/// The mounted volumes of the machine and their comings and goings, as a Linux desktop sees
/// them (GIO's mount table and GUnixMountMonitor).
///
/// What counts as a removable volume is what a file manager lists under "Devices": media that
/// the desktop's automounter (udisks2) or the user mounted in the places meant for them. A
/// mount is a removable volume when all of these hold:
///
/// - its mount point lies below /media/ (/media/USER/LABEL on Debian and Ubuntu, /media/LABEL
///   on older systems) or below /run/media/USER/ for the current user (Fedora, Arch; a process
///   running as root accepts every user's folder there);
/// - no folder on the way is hidden (a name starting with "."): such mounts are private on
///   purpose;
/// - GIO does not call it system-internal: no pseudo or system file-system type (tmpfs, proc,
///   overlay, autofs...), no system mount path, no system device name;
/// - it is backed by a block device. Media are block devices; a network share or a FUSE file
///   system mounted in those places is not removable media, and testing paths on it can block.
///
/// /mnt, the home folder and everything else are left out, as the desktop leaves them out.
class VolumeMonitor {
public:
    /// Every entry of the mount table, in mount order.
    static std::vector<MountedVolume> mountedVolumes();
    /// The mount paths of the removable volumes, in mount order, each path once.
    static std::vector<std::string> mountedRemovableMedia();
    /// The same, picked out of a mount table read before.
    static std::vector<std::string> removableMedia(const std::vector<MountedVolume>& volumes);
    /// Whether a mount counts as a removable volume, by the rule above, for a process of user
    /// `userName` (running as root when `runningAsRoot`).
    static bool isRemovableVolume(const MountedVolume& volume, const std::string& userName, bool runningAsRoot);
    /// The same for the current process.
    static bool isRemovableVolume(const MountedVolume& volume);

    /// Calls `changed` on the GLib main context that is thread-default now, every time the
    /// mount table changes (a volume mounted or unmounted), until the monitor is destroyed.
    /// Changes that come close together may be reported once. Nothing polls: the kernel wakes
    /// GIO when the table changes. An exception that leaves `changed` is logged and dropped
    /// (it cannot unwind through the main loop); the next change reports the table again.
    explicit VolumeMonitor(std::function<void()> changed);
    ~VolumeMonitor();
    VolumeMonitor(const VolumeMonitor&) = delete;
    VolumeMonitor& operator=(const VolumeMonitor&) = delete;

private:
    struct Connection;
    std::unique_ptr<Connection> connection_;
};

} // namespace zq
