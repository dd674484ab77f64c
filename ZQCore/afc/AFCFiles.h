#pragma once

#include "ZQCore/afc/AFCDevice.h"
#include "ZQCore/files/DeviceFiles.h"

#include <memory>

namespace zq {

/// The files of a phone reached over AFC, read through its current session. A read that fails
/// throws as AFCDevice's reads do ("AFCDeviceDeparted", ...); once the library has been told
/// that the device left (setStopped), reads answer at once without asking it, as a volume that
/// has gone does, until a new session is set.
class AFCFiles final : public DeviceFiles {
public:
    const std::shared_ptr<AFCDevice>& device() const { return device_; }
    /// A new session of the device (it returned); reads go on through it.
    void setDevice(const std::shared_ptr<AFCDevice>& device)
    {
        device_ = device;
    }
    /// Whether reads answer at once: the device is known to have left.
    void setStopped(bool stopped) { stopped_ = stopped; }

    std::optional<Data> contentsOfFile(const std::string& path) const override;
    /// No value unless a regular file is at the path.
    std::optional<Data> chunkOfFile(const std::string& path, Range range) const override;
    /// The size the device's file service reports ("st_size"); no value when the file is not a
    /// regular file there or the device is gone.
    std::optional<std::uint64_t> sizeOfFile(const std::string& path) const override;
    /// True for a regular file; a folder of the library's own databases counts too.
    bool fileExists(const std::string& path) const override;
    /// Streams the file over the session in constant memory.
    FileCopyResult copyFile(const std::string& path, int destination,
                            const FileCopyProgress& progress = {}) const override;
    /// The phone's files have no descriptors here: -1 with ENOTSUP.
    int openFile(const std::string& path, int flags) const override;
    /// Never: the phone's file service itself keeps every path inside its media folder.
    bool refusesPath(const std::string&) const override { return false; }
    /// None: a program that opens files by name needs a copy first.
    std::optional<std::string> localPath(const std::string&) const override { return std::nullopt; }
    bool hasGone() const override { return stopped_; }
    bool readsThroughSession() const override { return true; }
    /// The device's attributes as its file conduit reports them ("Model", "FSTotalBytes", ...).
    Value::Dictionary fileSystemInfo() const override;

private:
    std::shared_ptr<AFCDevice> device_;
    bool stopped_ = false;
};

} // namespace zq
