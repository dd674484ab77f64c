#pragma once

// Opening a file that a device names, without letting the name lead outside the device.
//
// Paths on a device's volume come from the device itself (a database's locations, artwork file
// names, base folders) and are untrusted: ":..:..:etc:passwd" or a symbolic link to /etc/shadow
// must not make the framework read the computer's own files, and people run it as root.

#include "ZQCore/files/DeviceFiles.h"
#include "ZQCore/foundation/Export.h"

#include <string>

namespace zq {

/// Opens `path` with `flags` (O_RDONLY, O_PATH, ... ; O_CLOEXEC is added) when it lies inside
/// the folder `root` and no component of it, symbolic links included, leads out of that folder.
/// Links that stay inside are followed. The check and the open are one step, so a link swapped
/// in between cannot lead out either. Answers the descriptor, or -1 with errno set: EXDEV when
/// the path (by its text or through a link) leads outside `root`, otherwise the open's own error.
/// Opens other than O_PATH never wait (O_NONBLOCK is added): a FIFO on a device is refused by
/// its reader as no regular file instead of hanging the open.
///
/// Uses openat2() with RESOLVE_BENEATH; on a kernel without it, walks the path a component at a
/// time with O_NOFOLLOW and then refuses every symbolic link (ELOOP).
ZQ_EXPORT int openInsideFolder(const std::string& root, const std::string& path, int flags);

/// The files of a mounted volume (a disk-mode iPod, a phone's file system mounted with ifuse or
/// a copy of one), every one opened through openInsideFolder below the mount path. A volume of
/// no path (a library object made without a device) opens paths as they are.
class ZQ_EXPORT VolumeFiles : public DeviceFiles {
public:
    explicit VolumeFiles(std::string root) : root_(std::move(root)) {}

    const std::string& root() const { return root_; }

    std::optional<Data> contentsOfFile(const std::string& path) const override;
    std::optional<Data> chunkOfFile(const std::string& path, Range range) const override;
    /// No value unless a regular file is at the path.
    std::optional<std::uint64_t> sizeOfFile(const std::string& path) const override;
    bool fileExists(const std::string& path) const override;
    /// Hands the copy to the kernel (see copyFileContents).
    FileCopyResult copyFile(const std::string& path, int destination,
                            const FileCopyProgress& progress = {}) const override;
    int openFile(const std::string& path, int flags) const override;
    /// By its text, or through a link on the volume.
    bool refusesPath(const std::string& path) const override;
    /// The file itself, when it is a file of the volume and not a link out of it.
    std::optional<std::string> localPath(const std::string& path) const override;
    /// The mount path no longer answers.
    bool hasGone() const override;
    bool readsThroughSession() const override { return false; }
    Value::Dictionary fileSystemInfo() const override;

private:
    std::string root_;
};

} // namespace zq
