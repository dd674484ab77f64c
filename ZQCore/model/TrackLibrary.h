#pragma once

#include "ZQCore/files/DeviceFiles.h"
#include "ZQCore/foundation/Export.h"

#include <memory>
#include <optional>
#include <string>

namespace zq {

/// What the tracks and artwork of a library see of the library object that loaded them: the
/// device's files, and whether the device is still there. ZQCoreiPod is one; a loader passes it
/// on to the tracks it makes without knowing more of it, so loaders and the model never depend
/// on the device layer.
class ZQ_EXPORT TrackLibrary {
public:
    virtual ~TrackLibrary();

    /// The device's files, through which every byte of the device is read.
    const DeviceFiles& files() const { return *files_; }

    /// The mount path of the device's volume ("/" over a session).
    std::string path() const { return iPodBasePath_; }

    bool isConnected() const { return connected_; }
    virtual void setIsConnected(bool connected) { connected_ = connected; }

    /// Names the library (the SQLite library's hidden container does, as it is read).
    virtual void setName(const std::optional<std::string>& name) = 0;

    /// True when the files are a phone's (reached through a session, or a folder holding a
    /// phone's iTunes_Control): its thumbnails carry an alpha bit (1-5-5-5).
    bool holdsPhoneFiles() const { return files_->readsThroughSession() || phoneFolder_; }

protected:
    /// A library of no device: its paths are opened as they are.
    TrackLibrary();

    std::shared_ptr<DeviceFiles> files_;
    std::string iPodBasePath_;
    bool connected_ = false;
    bool phoneFolder_ = false;
};

} // namespace zq
